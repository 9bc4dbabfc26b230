#include "platform/support/broadcaster.h"

#include <algorithm>

namespace voSupport {

Message::~Message() = default;

Broadcaster::~Broadcaster() = default;

void Broadcaster::addEntry(const std::type_info& type, Priority priority, std::function<void(Message&)> call) {
  auto handler = std::make_shared<Handler>(Handler{std::type_index(type), priority, std::move(call)});
  // After every handler of lower or equal priority: equal priorities keep registration order.
  auto at = std::upper_bound(handlers_.begin(), handlers_.end(), priority,
                             [](Priority p, const std::shared_ptr<Handler>& h) { return p < h->priority; });
  handlers_.insert(at, std::move(handler));
}

void Broadcaster::broadcast(Message& message) {
  const std::type_index type(typeid(message));
  std::vector<std::shared_ptr<Handler>> chosen;
  for (const auto& handler : handlers_) {
    if (handler->type == type) chosen.push_back(handler);
  }
  for (const auto& handler : chosen) handler->call(message);
}

void Broadcaster::addFirstTimeFlag(bool& flag) {
  if (std::find(flags_.begin(), flags_.end(), &flag) == flags_.end()) flags_.push_back(&flag);
}

void Broadcaster::reset() {
  handlers_.clear();
  for (bool* flag : flags_) *flag = true;
}

std::size_t Broadcaster::numHandlers(const std::type_info& messageType) const noexcept {
  const std::type_index type(messageType);
  return static_cast<std::size_t>(
      std::count_if(handlers_.begin(), handlers_.end(), [&](const auto& handler) { return handler->type == type; }));
}

}  // namespace voSupport
