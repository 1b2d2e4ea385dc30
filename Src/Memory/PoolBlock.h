// What an allocation policy hands to a pool and what the pool keeps in its free list: the driver's handle
// (a CUdeviceptr, a host pointer or a cl_mem, as an untyped pointer) and the Event after which the block
// may be reused. Policies always leave the event empty; a released block carries the one it came back with.
#pragma once

#include <boost/shared_ptr.hpp>

#include "Lumora/Queues.h"

namespace LM {

struct PoolBlock {
  void* pointer = nullptr;
  boost::shared_ptr<Event> readyEvent;
};

}  // namespace LM
