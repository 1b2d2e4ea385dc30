// Event polling: one slot per device (framework × 4 + the device's index in its framework), each with a list
// of pending (event, callback) pairs and a queue-only-once task on the device's executor that walks the list,
// runs the callbacks of completed events after the walk, and queues itself again while entries remain.
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

void ServiceSlot(Slot* slot) {
  std::vector<boost::function<void()>> ready;
  boost::shared_ptr<zelcore::threads::detail::QueueOnlyOnce> again;
  {
    std::lock_guard<std::mutex> lock(slot->mutex);
    for (auto entry = slot->polls.begin(); entry != slot->polls.end();) {
      // An empty event has nothing to wait for.
      if (!entry->first || entry->first->IsComplete()) {
        ready.push_back(std::move(entry->second));
        entry = slot->polls.erase(entry);
        --slot->count;
      } else {
        ++entry;
      }
    }
    if (slot->count != 0) again = slot->task;
  }
  // The next pass is queued before the callbacks run (it runs after this one on the single executor
  // thread either way), so a throwing callback cannot stop the polling of the others.
  if (again) again->Queue();
  for (const boost::function<void()>& callback : ready) callback();
}

}  // namespace

void AddEventPoll(const boost::shared_ptr<Device>& device, const boost::shared_ptr<Event>& event,
                  const boost::function<void()>& callback) {
  if (!device) return;
  Slot* slot = SlotOf(*device);
  if (slot == nullptr) return;
  boost::shared_ptr<zelcore::threads::detail::QueueOnlyOnce> task;
  {
    std::lock_guard<std::mutex> lock(slot->mutex);
    slot->polls.emplace_back(event, callback);
    ++slot->count;
    if (!slot->task || slot->owner.lock() != device) {
      slot->owner = device;
      slot->task = boost::make_shared<zelcore::threads::detail::QueueOnlyOnce>(
          device->GetExecutor(), boost::bind(&ServiceSlot, slot), kPollBackOffMilliseconds);
    }
    task = slot->task;
  }
  task->Queue();
}

void ServiceEventPoll(const boost::shared_ptr<Device>& device) {
  if (!device) return;
  if (Slot* slot = SlotOf(*device)) ServiceSlot(slot);
}

}  // namespace LM
