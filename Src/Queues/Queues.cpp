#include "Lumora/Queues.h"

namespace LM {

Event::~Event() = default;
CommandQueue::~CommandQueue() = default;

}  // namespace LM
