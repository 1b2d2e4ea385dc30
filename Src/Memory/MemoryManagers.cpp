#include "Memory/MemoryManagers.h"

#include <boost/make_shared.hpp>
#include <utility>

#include "Memory/CUDAMemoryPolicies.h"
#include "Memory/OpenCLMemoryPolicies.h"
#include "Memory/TemplateMemoryManager.h"

namespace LM {

MemoryManager::~MemoryManager() = default;

namespace {

template <class PoolManager, class... PolicyArgs>
boost::shared_ptr<PooledMemoryManager> Create(const char* name, std::size_t frameCacheLimit,
                                              std::size_t lowMark, std::size_t highMark, unsigned int ordinal,
                                              const boost::weak_ptr<CommandQueue>& queue,
                                              PolicyArgs&&... policyArgs) {
  try {
    auto manager = boost::make_shared<TemplateMemoryManager<PoolManager>>(
        name, frameCacheLimit, lowMark, highMark, ordinal, std::forward<PolicyArgs>(policyArgs)...);
    manager->SetCommandQueue(queue);
    return manager;
  } catch (...) {
    return {};
  }
}

}  // namespace

boost::shared_ptr<PooledMemoryManager> CreateCUDADeviceMemoryManager(
    const char* name, std::size_t frameCacheLimit, std::size_t lowMark, std::size_t highMark,
    unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue) {
  return Create<CUDADeviceMemoryPoolManager>(name, frameCacheLimit, lowMark, highMark, ordinal, queue);
}

boost::shared_ptr<PooledMemoryManager> CreateCUDAHostMemoryManager(
    const char* name, std::size_t frameCacheLimit, std::size_t lowMark, std::size_t highMark,
    unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue) {
  return Create<CUDAHostMemoryPoolManager>(name, frameCacheLimit, lowMark, highMark, ordinal, queue);
}

boost::shared_ptr<PooledMemoryManager> CreateOpenCLDeviceMemoryManager(
    cl_context context, const char* name, std::size_t frameCacheLimit, std::size_t lowMark,
    std::size_t highMark, unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue) {
  return Create<OpenCLDeviceMemoryPoolManager>(name, frameCacheLimit, lowMark, highMark, ordinal, queue,
                                               context);
}

boost::shared_ptr<PooledMemoryManager> CreateOpenCLHostMemoryManager(
    const char* name, std::size_t frameCacheLimit, std::size_t lowMark, std::size_t highMark,
    unsigned int ordinal, const boost::weak_ptr<CommandQueue>& queue) {
  return Create<OpenCLHostMemoryPoolManager>(name, frameCacheLimit, lowMark, highMark, ordinal, queue);
}

}  // namespace LM
