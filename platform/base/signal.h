#pragma once

#include "platform/base/export.h"

#include <functional>
#include <type_traits>
#include <utility>

// Signals and their clients.
//
// A signal calls its connections in the order they were made, oldest first. During an emission a
// slot may disconnect itself or others, connect new slots (called from the next emission on), emit
// the same signal again, or delete the signal's owner: the emission then stops after that slot. A
// disconnected slot is never called again; its callable is destroyed once no emission of the
// signal is under way. A SignalClient ends every connection made through it when it dies. Copying
// a signal or a client copies no connection. One thread only.
namespace ruRTB {

class SignalBase;
class SignalClient;
template <class... Args>
class Signal;

namespace detail {
class SignalCore;
}

// One connection of a signal to a callable. The signal owns it; a handle stays valid until the
// connection ends (disconnection, death of its client or of its signal), and callers null their
// copy when they end it.
class RU_BASE_API Connection {
public:
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool connected() const noexcept { return connected_; }
  SignalClient* client() const noexcept { return client_; }

protected:
  Connection() noexcept = default;
  virtual ~Connection();

private:
  friend class detail::SignalCore;
  friend class SignalClient;
  friend class SignalBase;
  template <class... Args>
  friend class Signal;

  detail::SignalCore* core_ = nullptr;
  SignalClient* client_ = nullptr;
  Connection* previous_ = nullptr;  // in the signal, in connection order
  Connection* next_ = nullptr;
  Connection* previousInClient_ = nullptr;
  Connection* nextInClient_ = nullptr;
  bool connected_ = false;
};

namespace detail {

// Shared state of a signal and of the emissions under way, so that an emission survives the death
// of its signal.
class RU_BASE_API SignalCore {
public:
  SignalCore() = default;
  SignalCore(const SignalCore&) = delete;
  SignalCore& operator=(const SignalCore&) = delete;

  void add(Connection* connection, SignalClient* client) noexcept;
  void disconnect(Connection* connection) noexcept;
  void disconnectClient(const SignalClient* client) noexcept;
  void disconnectAll() noexcept;
  // The signal is going: end every connection and drop the signal's hold.
  void signalDied() noexcept;

  void beginEmission() noexcept {
    ++holds_;
    ++emitting_;
  }
  void endEmission() noexcept;

  Connection* first() const noexcept { return first_; }
  Connection* last() const noexcept { return last_; }
  bool dead() const noexcept { return dead_; }
  int live() const noexcept { return live_; }

private:
  ~SignalCore() = default;
  void unlink(Connection* connection) noexcept;
  void sweep() noexcept;
  void release() noexcept;

  Connection* first_ = nullptr;
  Connection* last_ = nullptr;
  int live_ = 0;      // connections not yet ended
  int emitting_ = 0;  // emissions under way
  int holds_ = 1;     // the signal, plus one per emission under way
  bool dead_ = false;
  bool dirty_ = false;  // ended connections wait for the last emission to finish
};

class EmissionGuard {
public:
  explicit EmissionGuard(SignalCore* core) noexcept : core_(core) { core_->beginEmission(); }
  EmissionGuard(const EmissionGuard&) = delete;
  EmissionGuard& operator=(const EmissionGuard&) = delete;
  ~EmissionGuard() { core_->endEmission(); }

private:
  SignalCore* core_;
};

// How a signal passes an argument to its slots: references as they are, values by const reference.
template <class A>
using Param = std::conditional_t<std::is_reference_v<A>, A, const A&>;

template <class... Args>
class TypedConnection : public Connection {
public:
  virtual void invoke(Param<Args>... args) = 0;
};

template <class F, class... Args>
class CallableConnection final : public TypedConnection<Args...> {
public:
  template <class G>
  explicit CallableConnection(G&& callable) : callable_(std::forward<G>(callable)) {}
  void invoke(Param<Args>... args) override {
    if constexpr (std::is_invocable_v<F&, Param<Args>...>) {
      std::invoke(callable_, args...);
    } else {
      std::invoke(callable_);
    }
  }

private:
  F callable_;
};

}  // namespace detail

// Owner of connections: its death ends them all. Use it as a base or as a member.
class RU_BASE_API SignalClient {
public:
  SignalClient() noexcept = default;
  // A copy owns no connections; assignment keeps the target's.
  SignalClient(const SignalClient&) noexcept {}
  SignalClient& operator=(const SignalClient&) noexcept { return *this; }
  ~SignalClient();

  // Ends every connection made through this client.
  void disconnectAll() noexcept;
  int numConnections() const noexcept;

private:
  friend class detail::SignalCore;
  Connection* first_ = nullptr;
};

// Untyped part of every signal.
class RU_BASE_API SignalBase {
public:
  SignalBase() noexcept = default;
  // A copy has no connections; assignment keeps the target's.
  SignalBase(const SignalBase&) noexcept {}
  SignalBase& operator=(const SignalBase&) noexcept { return *this; }
  ~SignalBase();

  // Connections not yet ended.
  int numConnections() const noexcept;
  bool isConnected() const noexcept { return numConnections() > 0; }

  // Ends one connection of this signal; a null or foreign handle is ignored.
  void disconnect(Connection* connection) noexcept;
  // Ends every connection of this signal made through `client`.
  void disconnect(const SignalClient& client) noexcept;
  void disconnect(const SignalClient* client) noexcept {
    if (client) disconnect(*client);
  }
  void disconnectAll() noexcept;

protected:
  detail::SignalCore* core();
  detail::SignalCore* core_ = nullptr;
};

// A signal with typed emission. Slots may take all the arguments or none.
template <class... Args>
class Signal : public SignalBase {
public:
  Signal() noexcept = default;
  Signal(const Signal& other) noexcept : SignalBase(other) {}
  Signal& operator=(const Signal&) noexcept { return *this; }

  // Calls object->method(args...) at each emission until the connection ends. The client (null for
  // none) owns the connection.
  template <class Object, class Method>
  Connection* connect(Object* object, Method method, SignalClient* client = nullptr) {
    return addCallback(
        [object, method](detail::Param<Args>... args) {
          if constexpr (std::is_invocable_v<Method, Object*, detail::Param<Args>...>) {
            std::invoke(method, object, args...);
          } else {
            std::invoke(method, object);
          }
        },
        client);
  }
  template <class Object, class Method>
  Connection* connect(Object* object, Method method, SignalClient& client) {
    return connect(object, method, &client);
  }

  // Keeps a copy of `callable` and calls it at each emission; the copy is destroyed when the
  // connection ends.
  template <class F>
  Connection* addCallback(F&& callable, SignalClient* client = nullptr) {
    using Stored = std::decay_t<F>;
    auto* connection = new detail::CallableConnection<Stored, Args...>(std::forward<F>(callable));
    core()->add(connection, client);
    return connection;
  }
  template <class F>
  Connection* addCallback(F&& callable, SignalClient& client) {
    return addCallback(std::forward<F>(callable), &client);
  }

  // Calls every connection made before this emission began, oldest first.
  void emit(detail::Param<Args>... args) const {
    detail::SignalCore* core = core_;
    if (!core || !core->first()) return;
    detail::EmissionGuard guard(core);
    Connection* last = core->last();
    for (Connection* connection = core->first(); connection; connection = connection->next_) {
      if (connection->connected_) static_cast<detail::TypedConnection<Args...>*>(connection)->invoke(args...);
      if (connection == last || core->dead()) break;
    }
  }
  void operator()(detail::Param<Args>... args) const { emit(args...); }
};

using SignalVoid = Signal<>;
template <class A>
using SignalArg = Signal<A>;
template <class A, class B>
using Signal2Args = Signal<A, B>;

}  // namespace ruRTB
