// The library's side of event polling (Lumora/EventPoll.h): what shut-down does with polls still pending.
#pragma once

#include <boost/function.hpp>
#include <vector>

namespace LM {

class Device;

// The polls of a device taken out of its list at shut-down: the callbacks whose events had completed, to
// be run, and those whose events had not, to be released unrun. Both are host code, so the caller runs and
// releases them once it holds none of the library's locks.
struct EventPollLeftovers {
  std::vector<boost::function<void()>> ready;
  std::vector<boost::function<void()>> abandoned;
};

// Empties the device's poll list while its context still exists (nothing is polled against a destroyed
// context later) and drops the events. Never throws.
void TakeEventPolls(const Device& device, EventPollLeftovers& leftovers);

// Runs the ready callbacks and then releases them all; whatever a callback throws is reported and stopped.
void FinishEventPolls(EventPollLeftovers& leftovers);

}  // namespace LM
