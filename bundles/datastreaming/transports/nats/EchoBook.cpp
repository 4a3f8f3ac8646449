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
  if (refusal) book->fail(number, number, *refusal);
  return result;
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
  for (const auto tag : tags) fail(tag, tag, why);
}

/// What still waits to be posted may yet be confirmed.
void EchoBook::disconnected() {
  fail(0, _lastPosted, "the connection was lost before the server confirmed the message");
}

void EchoBook::fail(std::uint64_t from, std::uint64_t to, const std::string& why) {
  std::map<std::uint64_t, Expected> failed;
  {
    const std::lock_guard lock(_mutex);
    for (auto at = _expected.lower_bound(from); at != _expected.end() && at->first <= to;) {
      failed.insert(_expected.extract(at++));
    }
  }
  for (auto& [number, expected] : failed) {
    expected.promise.set_exception(std::make_exception_ptr(std::runtime_error(why)));
  }
}

}  // namespace kestrel::streams
