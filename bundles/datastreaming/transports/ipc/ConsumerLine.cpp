#include "transports/ipc/ConsumerLine.hpp"

#include "transports/ipc/AnswersTogether.hpp"
#include "transports/ipc/IpcStream.hpp"

namespace kestrel::streams {

void ConsumerLine::connect(const std::shared_ptr<ConsumerLine>& self,
                           std::shared_ptr<ConsumerConnection> connection) {
  _connection = std::move(connection);
  try {
    _connection->attach(self);  // from now on the loop uses it
  } catch (...) {
    _connection.reset();
    throw;
  }
  _outbox.open(_connection);
  _outbox.pump();
}

std::uint64_t ConsumerLine::used() {
  return _outbox.waitingBytes() + (_connection ? _connection->costUnderWay() : 0);
}

void ConsumerLine::post(const Record& record) {
  (void)_outbox.post({record, record->cost(), 0, nullptr, 0});
}

void ConsumerLine::tellMissed() {
  using Kind = ProducerEvent::Kind;
  for (const auto& [producer, number] : std::exchange(_missed, {})) {
    post(OutgoingRecord::event({Kind::idle, producer, number}));
  }
}

ConsumerLine::Remains ConsumerLine::remains() {
  _outbox.suspend("the consumer has gone");
  Remains remains;
  if (_connection) remains = {_connection->unhandled(), _connection->takeUnwritten()};
  for (auto& post : _outbox.takeWaiting()) {
    remains.unsent.push_back(std::static_pointer_cast<OutgoingRecord>(std::move(post.message)));
  }
  return remains;
}

void ConsumerLine::giveUp() {
  if (!_connection || _connection->lost()) return;
  _connection->markLost();
  _connection->wake();
}

void ConsumerLine::writeOut(TimePoint deadline) {
  constexpr std::chrono::milliseconds slice{50};
  const AnswersTogether::Interrupted now;
  _outbox.pump();
  while (_connection && !_connection->lost() && !_outbox.empty() && Clock::now() < deadline) {
    _connection->awaitRoom(static_cast<int>(slice.count()));
    _outbox.pump();
  }
}

void ConsumerLine::writable() {
  _connection->writable();
  _outbox.pump();
  if (const auto stream = _connection->lost() ? _stream.lock() : nullptr) stream->reap();
}

void ConsumerLine::ended() {
  _connection->markLost();
  if (const auto stream = _stream.lock()) stream->reap();
}

bool ConsumerLine::tick() {
  const bool full = !_connection->usable();
  if (full) writable();
  const bool again = _connection->costUnderWay() > 0 || full;
  if (const auto stream = _stream.lock()) return stream->tick(*this) || again;
  return again;
}

}  // namespace kestrel::streams
