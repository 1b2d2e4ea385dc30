// The pooled allocator of a device's memory. A block that a caller releases goes back into the pool with
// the Event after which it may be reused; memory returns to the driver only when the pool grows past its
// marks, when an allocation fails, or on a purge.
#pragma once

#include <zelmediatypes/PixelFormat.h>

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <cstddef>

#include "Lumora/Export.h"
#include "Lumora/FrameCache.h"
#include "Lumora/Queues.h"

namespace LM {

class LM_API MemoryManager {
 public:
  virtual ~MemoryManager();

  // Gives back free blocks above the marks and lets the frame cache age.
  virtual void Trim() = 0;
  // A block of at least `bytes`; *allocatedBytes (when given) receives its true size. Null on failure.
  virtual void* Allocate(std::size_t bytes, std::size_t* allocatedBytes) = 0;
  // A block for a width x height image of `format` (on OpenCL devices an image object).
  virtual void* Allocate(int width, int height, zelmediatypes::PixelFormat format,
                         std::size_t* allocatedBytes) = 0;
  // Hands a block back, to be reused once `readyEvent` (empty: at once) has completed. Never blocks; may be
  // called from any thread.
  virtual void Release(void* block, const boost::shared_ptr<Event>& readyEvent) = 0;
  // Frees at least `bytes` if it can (purge callbacks first, then free blocks); returns the bytes freed.
  virtual std::size_t Purge(std::size_t bytes) = 0;
  // Bytes handed out to callers.
  virtual std::size_t GetUsedSize() = 0;
  virtual void GetStatistics(std::size_t* totalBytes, std::size_t* freeBlockCount,
                             std::size_t* liveBlockCount, std::size_t* lowMark, std::size_t* highMark) = 0;
  // Registers who can be asked to free memory; callbacks are asked in id order. Returns the id.
  virtual int AddPurgeCallback(const boost::function<std::size_t(std::size_t)>& callback) = 0;
  virtual void RemovePurgeCallback(int id, bool flag) = 0;
  virtual FrameCache& GetFrameCache() = 0;
};

}  // namespace LM
