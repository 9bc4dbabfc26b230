#pragma once

#include "platform/support/export.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <typeindex>
#include <typeinfo>
#include <vector>

namespace voRFL {
class Database;
}

namespace voSupport {

// Base of every message sent through a Broadcaster. Handlers are chosen by the message's exact
// run-time type.
class VO_SUPPORT_API Message {
public:
  Message() = default;
  Message(const Message&) = default;
  Message& operator=(const Message&) = default;
  virtual ~Message();
};

// Order of handlers: by unit, then by module, ascending.
struct Priority {
  int unit = 0;
  int module = 0;

  constexpr Priority() = default;
  constexpr Priority(int unitNumber, int moduleNumber) : unit(unitNumber), module(moduleNumber) {}
  friend constexpr auto operator<=>(const Priority&, const Priority&) = default;
};

// Sends messages to the handlers registered for their type. Modules register their handlers once,
// under a first-time flag that `reset` sets back to true, so they register again after a reset.
class VO_SUPPORT_API Broadcaster {
public:
  Broadcaster() = default;
  Broadcaster(const Broadcaster&) = delete;
  Broadcaster& operator=(const Broadcaster&) = delete;
  ~Broadcaster();

  // Calls `handler` for every message whose run-time type is exactly Msg. Among handlers of one
  // type, lower priorities run first and equal ones in registration order.
  template <class Msg>
  void addHandler(Priority priority, std::function<void(Msg&)> handler) {
    if (!handler) return;
    addEntry(typeid(Msg), priority,
             [handler = std::move(handler)](Message& message) { handler(static_cast<Msg&>(message)); });
  }

  // Runs the handlers of the message's type. Handlers added during a broadcast are not called in
  // it; the handlers' exceptions pass through.
  void broadcast(Message& message);

  // Remembers a module's first-time flag, so that `reset` can set it again.
  void addFirstTimeFlag(bool& flag);

  // Drops every handler and sets every remembered flag back to true.
  void reset();

  std::size_t numHandlers() const noexcept { return handlers_.size(); }
  std::size_t numHandlers(const std::type_info& messageType) const noexcept;

private:
  struct Handler {
    std::type_index type;
    Priority priority;
    std::function<void(Message&)> call;
  };
  void addEntry(const std::type_info& type, Priority priority, std::function<void(Message&)> call);

  std::vector<std::shared_ptr<Handler>> handlers_;  // sorted by priority, stable
  std::vector<bool*> flags_;
};

// Sent by the host so that every module exposes its classes to the reflection database.
class VO_SUPPORT_API InitializeReflectionMsg : public Message {
public:
  explicit InitializeReflectionMsg(voRFL::Database* database) : database_(database) {}
  voRFL::Database* getDB() const noexcept { return database_; }

private:
  voRFL::Database* database_;
};

}  // namespace voSupport
