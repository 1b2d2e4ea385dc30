// The four memory managers a device can own, one per framework and memory kind. Each returns null when it
// cannot be made. `name` ("device" or "host") must outlive the manager: it is kept, not copied. `ordinal`
// is stored only. `queue` is the device's command queue as it is now; the device passes its new queue to
// SetCommandQueue whenever it recreates it.
#pragma once

#include <CL/cl.h>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstddef>

#include "Lumora/Queues.h"
#include "Memory/PooledMemoryManager.h"

namespace LM {

boost::shared_ptr<PooledMemoryManager> CreateCUDADeviceMemoryManager(
    const char* name, std::size_t frameCacheLimit, std::size_t lowMark, std::size_t highMark,
    unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue);
boost::shared_ptr<PooledMemoryManager> CreateCUDAHostMemoryManager(
    const char* name, std::size_t frameCacheLimit, std::size_t lowMark, std::size_t highMark,
    unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue);
// Buffers and images in `context`, which must outlive the manager.
boost::shared_ptr<PooledMemoryManager> CreateOpenCLDeviceMemoryManager(
    cl_context context, const char* name, std::size_t frameCacheLimit, std::size_t lowMark,
    std::size_t highMark, unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue);
// Host memory needs no context: it comes from the host's memory recycler.
boost::shared_ptr<PooledMemoryManager> CreateOpenCLHostMemoryManager(
    const char* name, std::size_t frameCacheLimit, std::size_t lowMark, std::size_t highMark,
    unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue);

}  // namespace LM
