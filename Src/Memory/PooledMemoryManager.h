// The library's own view of a device's memory managers: a MemoryManager whose pool orders the reuse of
// blocks still in use on the GPU on the device's command queue. Not exported; hosts see MemoryManager.
#pragma once

#include <boost/weak_ptr.hpp>

#include "Lumora/MemoryManager.h"
#include "Lumora/Queues.h"

namespace LM {

class PooledMemoryManager : public MemoryManager {
 public:
  // The device calls this whenever it (re)creates its queue, holding its exclusive access. The manager
  // keeps a weak reference only: a pool never keeps a queue alive.
  virtual void SetCommandQueue(const boost::weak_ptr<CommandQueue>& queue) = 0;
};

}  // namespace LM
