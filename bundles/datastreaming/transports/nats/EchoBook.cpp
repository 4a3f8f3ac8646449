#include "transports/nats/EchoBook.hpp"

#include <stdexcept>
#include <utility>

#include "transports/nats/OutgoingMessage.hpp"

namespace kestrel::streams {

std::shared_future<std::string> EchoBook::expect(const std::shared_ptr<EchoBook>& book, Outbox& outbox,
                                                 std::string text) {
  constexpr std::uint64_t cost = 256;
  std::shared_future<std::string> result;
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(book->_mutex);
    number = ++book->_last;
    Expected& expected = book->_expected[number];
    expected.text = std::move(text);
    result = expected.promise.get_future().share();
  }
  const auto refusal =
      outbox.post({makeSignal(book->_prefix + std::to_string(number)), cost, number, book, 0});
  if (refusal) book->postsFailed({number}, *refusal);
  return result;
}

void EchoBook::rinse(Outbox& outbox, std::size_t bytes, std::uint64_t epoch) const {
  (void)outbox.post({makeSignal(_prefix + "0", std::string(bytes, '\n')), bytes, 0, nullptr, epoch});
}

void EchoBook::replied(std::uint64_t number, natsMsg*) {
  Expected confirmed;
  {
    const std::lock_guard lock(_mutex);
    const auto found = _expected.find(number);
    if (found == _expected.end()) return;
    confirmed = std::move(found->second);
    _expected.erase(found);
  }
  confirmed.promise.set_value(std::move(confirmed.text));
}

bool EchoBook::idle() {
  const std::lock_guard lock(_mutex);
  return _expected.empty();
}

void EchoBook::postsFailed(const std::vector<std::uint64_t>& tags, const std::string& why) {
  Book failed;
  {
    const std::lock_guard lock(_mutex);
    for (const auto tag : tags) failed.insert(_expected.extract(tag));
  }
  fail(failed, why);
}

/// Before it goes: a connection that is lost just now must find it marked.
void EchoBook::posting(std::uint64_t tag) noexcept {
  const std::lock_guard lock(_mutex);
  const auto found = _expected.find(tag);
  if (found != _expected.end()) found->second.posted = true;
}

void EchoBook::abandon(const std::string& why) {
  Book failed;
  {
    const std::lock_guard lock(_mutex);
    failed.swap(_expected);
  }
  fail(failed, why);
}

/// What still waits to be posted may yet be confirmed.
void EchoBook::disconnected() {
  Book failed;
  {
    const std::lock_guard lock(_mutex);
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
