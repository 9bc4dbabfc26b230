#include "platform/base/signal.h"

namespace ruRTB {

Connection::~Connection() = default;

namespace detail {

void SignalCore::add(Connection* connection, SignalClient* client) noexcept {
  connection->core_ = this;
  connection->connected_ = true;
  connection->previous_ = last_;
  connection->next_ = nullptr;
  if (last_) {
    last_->next_ = connection;
  } else {
    first_ = connection;
  }
  last_ = connection;
  ++live_;
  connection->client_ = client;
  if (client) {
    connection->nextInClient_ = client->first_;
    if (client->first_) client->first_->previousInClient_ = connection;
    client->first_ = connection;
  }
}

void SignalCore::unlink(Connection* connection) noexcept {
  if (connection->previous_) {
    connection->previous_->next_ = connection->next_;
  } else {
    first_ = connection->next_;
  }
  if (connection->next_) {
    connection->next_->previous_ = connection->previous_;
  } else {
    last_ = connection->previous_;
  }
  connection->previous_ = connection->next_ = nullptr;
}

void SignalCore::disconnect(Connection* connection) noexcept {
  if (!connection->connected_) return;
  connection->connected_ = false;
  --live_;
  if (SignalClient* client = connection->client_) {
    if (connection->previousInClient_) {
      connection->previousInClient_->nextInClient_ = connection->nextInClient_;
    } else {
      client->first_ = connection->nextInClient_;
    }
    if (connection->nextInClient_) connection->nextInClient_->previousInClient_ = connection->previousInClient_;
    connection->previousInClient_ = connection->nextInClient_ = nullptr;
    connection->client_ = nullptr;
  }
  if (emitting_ > 0) {
    // An emission may be walking through this record, or running its callable: keep it until the
    // last emission ends.
    dirty_ = true;
    return;
  }
  unlink(connection);
  delete connection;
}

void SignalCore::disconnectClient(const SignalClient* client) noexcept {
  // Walk as an emission would, so that no record is deleted under the walk; the sweep at the end
  // deletes them (and their callables may then touch this signal safely).
  beginEmission();
  for (Connection* connection = first_; connection; connection = connection->next_) {
    if (connection->connected_ && connection->client_ == client) disconnect(connection);
  }
  endEmission();
}

void SignalCore::disconnectAll() noexcept {
  if (emitting_ > 0) {
    for (Connection* connection = first_; connection; connection = connection->next_) disconnect(connection);
    return;
  }
  // Deleting a callable may end other connections of this signal: always take the first one left.
  while (first_) disconnect(first_);
}

void SignalCore::signalDied() noexcept {
  dead_ = true;
  disconnectAll();
  release();
}

void SignalCore::endEmission() noexcept {
  if (--emitting_ == 0 && dirty_) sweep();
  release();
}

void SignalCore::sweep() noexcept {
  dirty_ = false;
  // Unlink every ended record first, then delete them: their callables may connect to or
  // disconnect from this signal while they die.
  Connection* ended = nullptr;
  for (Connection* connection = first_; connection;) {
    Connection* next = connection->next_;
    if (!connection->connected_) {
      unlink(connection);
      connection->next_ = ended;
      ended = connection;
    }
    connection = next;
  }
  ++holds_;
  while (ended) {
    Connection* next = ended->next_;
    delete ended;
    ended = next;
  }
  release();
}

void SignalCore::release() noexcept {
  if (--holds_ == 0) {
    // Only the dead signal's emissions held it, and they have ended.
    while (first_) {
      Connection* connection = first_;
      unlink(connection);
      delete connection;
    }
    delete this;
  }
}

}  // namespace detail

SignalClient::~SignalClient() { disconnectAll(); }

void SignalClient::disconnectAll() noexcept {
  while (first_) first_->core_->disconnect(first_);
}

int SignalClient::numConnections() const noexcept {
  int count = 0;
  for (Connection* connection = first_; connection; connection = connection->nextInClient_) ++count;
  return count;
}

SignalBase::~SignalBase() {
  if (core_) core_->signalDied();
}

detail::SignalCore* SignalBase::core() {
  if (!core_) core_ = new detail::SignalCore;
  return core_;
}

int SignalBase::numConnections() const noexcept { return core_ ? core_->live() : 0; }

void SignalBase::disconnect(Connection* connection) noexcept {
  if (connection && core_ && connection->core_ == core_) core_->disconnect(connection);
}

void SignalBase::disconnect(const SignalClient& client) noexcept {
  if (core_) core_->disconnectClient(&client);
}

void SignalBase::disconnectAll() noexcept {
  if (core_) core_->disconnectAll();
}

}  // namespace ruRTB
