#include "transports/nats/connection/EchoBook.hpp"

#include <stdexcept>
#include <utility>

#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {

EchoBook::Expectation EchoBook::expect(std::string text) {
  const callbacks::MutexLock lock(_mutex);
  const std::uint64_t number = ++_last;
  Expected& expected = _expected[number];
  expected.text = std::move(text);
  return {number, expected.promise.get_future().share()};
}

void EchoBook::ask(const std::shared_ptr<EchoBook>& book, Outbox& outbox, std::uint64_t number) {
  constexpr std::uint64_t cost = 256;
  const auto refusal =
      outbox.post({makeSignal(book->_prefix + std::to_string(number)), cost, number, book, 0});
  if (refusal) book->postsFailed({number}, *refusal);
}

void EchoBook::replied(std::uint64_t number, natsMsg*) {
  Expected confirmed;
  {
    const callbacks::MutexLock lock(_mutex);
    const auto found = _expected.find(number);
    if (found == _expected.end()) return;
    confirmed = std::move(found->second);
    _expected.erase(found);
  }
  confirmed.promise.set_value(std::move(confirmed.text));
}

bool EchoBook::idle() {
  const callbacks::MutexLock lock(_mutex);
  return _expected.empty();
}

void EchoBook::postsFailed(const std::vector<std::uint64_t>& tags, const std::string& why) {
  Book failed;
  {
    const callbacks::MutexLock lock(_mutex);
    for (const auto tag : tags) failed.insert(_expected.extract(tag));
  }
  fail(failed, why);
}

/// Of the message or of the one that asks, whichever is first. Before it goes: a session that is lost just
/// now must find it marked.
void EchoBook::posting(std::uint64_t tag) noexcept {
  const callbacks::MutexLock lock(_mutex);
  const auto found = _expected.find(tag);
  if (found != _expected.end()) found->second.posted = true;
}

void EchoBook::abandon(const std::string& why) {
  Book failed;
  {
    const callbacks::MutexLock lock(_mutex);
    failed.swap(_expected);
  }
  fail(failed, why);
}

/// What still waits to be posted may yet be confirmed.
void EchoBook::disconnected() {
  Book failed;
  {
    const callbacks::MutexLock lock(_mutex);
    for (auto at = _expected.begin(); at != _expected.end();) {
      const auto each = at++;
      if (each->second.posted) failed.insert(_expected.extract(each));
    }
  }
  fail(failed, "the connection was lost before the server confirmed the message");
}

void EchoBook::fail(Book& failed, const std::string& why) {
  for (auto& [number, expected] : failed) {
    expected.promise.set_exception(std::make_exception_ptr(std::runtime_error(why)));
  }
}

}  // namespace kestrel::streams
