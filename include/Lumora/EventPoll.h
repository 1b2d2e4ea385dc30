// Work attached to a GPU event, run on the device's executor once the event has completed, without
// blocking any thread.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include "Lumora/Export.h"
#include "Lumora/Queues.h"

namespace LM {

class Device;

// Runs `callback` on the device's executor once `event` is complete: in a later polling pass, never inside
// this call. Polls of one device run in the order they were added.
LM_API void AddEventPoll(const boost::shared_ptr<Device>& device, const boost::shared_ptr<Event>& event,
                         const boost::function<void()>& callback);
// One polling pass for the device: runs the callbacks of every completed event and, while events remain,
// queues the next pass. The device's poll task runs it; a host may call it too.
LM_API void ServiceEventPoll(const boost::shared_ptr<Device>& device);

}  // namespace LM
