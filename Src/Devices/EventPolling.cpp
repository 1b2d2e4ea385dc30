// Event polling: one slot per device (framework × 4 + the device's index in its framework), each with a list
// of pending (event, callback) pairs and a queue-only-once task on the device's executor that walks the list,
// runs the callbacks of completed events after the walk, and queues itself again while entries remain.
#include "Devices/EventPolling.h"

#include <zelcore/Threads.h>

#include <boost/bind/bind.hpp>
#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

#include "Lumora/Device.h"
#include "Lumora/EventPoll.h"
#include "Runtime/FailureReport.h"

namespace LM {

namespace {

constexpr unsigned int kSlots = 2 * kMaximumDevicesPerFramework;
// Passed with the poll task to the host executor: the back-off in milliseconds before a pass that found
// events still pending runs again, so an idle wait does not spin a core.
constexpr int kPollBackOffMilliseconds = 5;

struct Slot {
  // Guards the list: polls are added from any thread while the pass runs on the executor.
  std::mutex mutex;
  // The poll task, on the executor of the device it was made for. The task holds the slot, not the device,
  // so polling never keeps a device alive; a new device in the same slot (after a restart of the library)
  // gets a task on its own executor.
  boost::weak_ptr<Device> owner;
  boost::shared_ptr<zelcore::threads::detail::QueueOnlyOnce> task;
  std::list<std::pair<boost::shared_ptr<Event>, boost::function<void()>>> polls;
  std::size_t count = 0;
};

Slot* SlotOf(const Device& device) {
  static Slot* const slots = new Slot[kSlots];  // kept for the life of the process, as the tasks are
  // Only the first four devices of a framework ever get a context, so only they have events to poll.
  if (device.GetFrameworkIndex() >= kMaximumDevicesPerFramework) return nullptr;
  return &slots[device.GetFramework() * kMaximumDevicesPerFramework + device.GetFrameworkIndex()];
}

// A callback is the host's code: what it throws is reported and stopped here, so the other callbacks of
// the pass still run and nothing reaches the executor or the host that called ServiceEventPoll.
void RunCallback(const boost::function<void()>& callback) {
  try {
    callback();
  } catch (...) {
    ReportFailure(LM_SITE_SILENCE_FLAG(), "callback does not throw", "An event poll callback threw",
                  SourceName(__FILE__), __LINE__);
  }
}

// Moves the entries whose events have completed (an empty event has nothing to wait for) into `ready`.
// Called with the slot's lock held.
void TakeReady(Slot& slot, std::vector<boost::function<void()>>& ready) {
  for (auto entry = slot.polls.begin(); entry != slot.polls.end();) {
    if (!entry->first || entry->first->IsComplete()) {
      ready.push_back(std::move(entry->second));
      entry = slot.polls.erase(entry);
      --slot.count;
    } else {
      ++entry;
    }
  }
}

void ServiceSlot(Slot* slot) {
  try {
    std::vector<boost::function<void()>> ready;
    boost::shared_ptr<zelcore::threads::detail::QueueOnlyOnce> again;
    {
      std::lock_guard<std::mutex> lock(slot->mutex);
      TakeReady(*slot, ready);
      if (slot->count != 0) again = slot->task;
    }
    // The next pass is queued before the callbacks run (it runs after this one on the single executor
    // thread either way). Callbacks run without the slot's lock, so they may add polls.
    if (again) again->Queue();
    for (const boost::function<void()>& callback : ready) RunCallback(callback);
  } catch (...) {
    // Out of memory for the list of ready callbacks: the entries stay for a later pass.
  }
}

}  // namespace

void AddEventPoll(const boost::shared_ptr<Device>& device, const boost::shared_ptr<Event>& event,
                  const boost::function<void()>& callback) {
  try {
    if (!device) return;
    Slot* slot = SlotOf(*device);
    if (slot == nullptr) return;
    boost::shared_ptr<zelcore::threads::detail::QueueOnlyOnce> task;
    {
      std::lock_guard<std::mutex> lock(slot->mutex);
      if (!slot->task || slot->owner.lock() != device) {
        slot->task = boost::make_shared<zelcore::threads::detail::QueueOnlyOnce>(
            device->GetExecutor(), boost::bind(&ServiceSlot, slot), kPollBackOffMilliseconds);
        slot->owner = device;
      }
      slot->polls.emplace_back(event, callback);
      ++slot->count;
      task = slot->task;
    }
    task->Queue();
  } catch (...) {
    // The poll could not be stored or queued; the callback is not run, as for a device without a slot.
  }
}

void ServiceEventPoll(const boost::shared_ptr<Device>& device) {
  if (!device) return;
  if (Slot* slot = SlotOf(*device)) ServiceSlot(slot);
}

void TakeEventPolls(const Device& device, EventPollLeftovers& leftovers) {
  Slot* slot = SlotOf(device);
  if (slot == nullptr) return;
  try {
    std::lock_guard<std::mutex> lock(slot->mutex);
    TakeReady(*slot, leftovers.ready);
    for (auto& entry : slot->polls) leftovers.abandoned.push_back(std::move(entry.second));
  } catch (...) {
    // Out of memory: what could not be moved out is released with the list below, unrun.
  }
  std::list<std::pair<boost::shared_ptr<Event>, boost::function<void()>>> dropped;
  {
    std::lock_guard<std::mutex> lock(slot->mutex);
    dropped.swap(slot->polls);
    slot->count = 0;
  }
  // The events go here, before their context does; callbacks left in the list are empty or host objects
  // that could not be moved out, released now (as rarely as out of memory).
  dropped.clear();
}

void FinishEventPolls(EventPollLeftovers& leftovers) {
  for (const boost::function<void()>& callback : leftovers.ready) RunCallback(callback);
  leftovers.ready.clear();
  leftovers.abandoned.clear();
}

}  // namespace LM
