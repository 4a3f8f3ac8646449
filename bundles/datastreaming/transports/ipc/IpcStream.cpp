#include "transports/ipc/IpcStream.hpp"

#include <algorithm>

#include "transports/ipc/IpcStreams.hpp"

namespace kestrel::streams {

namespace {

std::uint64_t messagesIn(const std::vector<ConsumerLine::Record>& records) {
  return static_cast<std::uint64_t>(std::ranges::count_if(records, &OutgoingRecord::isMessage));
}

}  // namespace

std::shared_ptr<IpcStream> IpcStream::create(std::shared_ptr<IpcStreams> home, std::string token,
                                             std::uint64_t limit) {
  std::shared_ptr<IpcStream> stream(new IpcStream(std::move(home), std::move(token), limit));
  stream->add(std::make_shared<ConsumerLine>(stream));  // without the lock: nobody else knows it yet
  auto* const bare = stream.get();
  return {bare, [stream = std::move(stream)](IpcStream*) mutable {
            const auto last = std::move(stream);  // else who remembers the owners would keep it
            last->close();
          }};
}

void IpcStream::close() {
  const auto deadline = Clock::now() + std::chrono::seconds(2);
  Lines lines;
  std::string why;
  {
    const callbacks::MutexLock lock(_mutex);
    _closed = true;  // so nobody else uses the lines from now on, nor waits for this
    why = attended() ? "the stream was closed before its consumers had taken what was sent"
                     : "nobody has come to read what was sent";
    lines.swap(_lines);
  }
  std::uint64_t left = 0;
  for (const auto& line : lines) {
    line->writeOut(deadline);
    left += messagesIn(line->remains().unsent);
  }
  const callbacks::MutexLock lock(_mutex);
  countLost(left, why);
}

void IpcStream::openedBy(const std::shared_ptr<StreamContext>& context) {
  const callbacks::MutexLock lock(_mutex);
  _context = context;
}

void IpcStream::join(const std::shared_ptr<ErrorOutlet>& errors) {
  {
    const callbacks::MutexLock lock(_mutex);
    std::erase_if(_errors, [](const auto& outlet) { return outlet.expired(); });
    _errors.push_back(errors);
  }
  _home->watchFor(shared_from_this());
}

std::optional<std::string> IpcStream::refusalLocked(std::uint64_t size, std::uint64_t cost) {
  std::uint64_t least = _limit;
  for (const auto& line : _lines) least = std::min(least, line->used());
  if (cost <= _limit && least <= _limit - cost) return std::nullopt;
  return "message of " + std::to_string(size) + " bytes refused: " + std::to_string(least) +
         " bytes wait for " + (attended() ? "a consumer" : "the first consumer") + ", the limit is " +
         std::to_string(_limit);
}

std::optional<std::string> IpcStream::refusal(std::uint64_t size, std::uint64_t cost) {
  const callbacks::MutexLock lock(_mutex);
  return refusalLocked(size, cost);
}

std::optional<std::string> IpcStream::publish(const std::shared_ptr<OutgoingRecord>& message,
                                              const Stamp& stamp, std::uint64_t size) {
  _home->refresh();
  const callbacks::MutexLock lock(_mutex);
  reapLocked();
  const std::uint64_t cost = message->cost();
  if (auto why = refusalLocked(size, cost)) return why;
  std::uint64_t missing = 0;
  for (const auto& line : _lines) {
    if (line->used() + cost <= _limit) {
      line->tellMissed();
      line->post(message);
    } else {
      line->miss(stamp.producer, stamp.sequence);
      ++missing;
    }
  }
  reapLocked();  // what could not be sent waits for the next consumer now, if there is no other
  if (missing > 0) countMissing(missing);
  return std::nullopt;
}

/// A message that so many consumers have missed, while others got it.
void IpcStream::countMissing(std::uint64_t messages) {
  _home->loop()->startTicking();  // for they are told that there was something as soon as they have room
  if (const auto context = _context.lock()) StreamCounters::add(context->counters.lost, messages);
  _missed.add();
  if (const auto count = _missed.due(Clock::now()); count > 0) {
    report(std::to_string(count) + " messages did not reach every consumer, for one of them does not take " +
           std::to_string(_limit) + " bytes that wait for it");
  }
}

void IpcStream::announce(const ProducerEvent& event) {
  const auto record = OutgoingRecord::event(event);
  const callbacks::MutexLock lock(_mutex);
  for (const auto& line : _lines) {
    if (line->used() <= 2 * _limit)
      line->post(record);
    else
      line->giveUp();
  }
}

/// What is sent from now on is kept for a consumer that cannot be reached at once, too.
bool IpcStream::consumerCame(const std::string& name) {
  using State = StreamFolder::Connected::State;
  const callbacks::MutexLock lock(_mutex);
  const auto known = lineTo(name);
  if (_closed || (known && known->connected())) return true;
  try {
    auto connected = _home->folder().connect(name);
    if (connected.state == State::refused) report("a consumer cannot be reached: " + connected.why);
    if (connected.state == State::refused || connected.state == State::gone) {
      part(name);
      return true;
    }
    const auto line = expect(name);
    if (connected.state == State::busy) return false;
    line->connect(line, std::make_shared<ConsumerConnection>(std::move(connected.socket), _home->loop()));
    return true;
  } catch (const std::system_error&) {
    (void)expect(name);
    throw;
  }
}

bool IpcStream::attended() const {
  return std::ranges::any_of(_lines, [](const auto& line) { return line->connected(); });
}

std::shared_ptr<ConsumerLine> IpcStream::lineTo(const std::string& name) const {
  const auto found = std::ranges::find_if(_lines, [&](const auto& line) { return line->name() == name; });
  return found == _lines.end() ? nullptr : *found;
}

/// The line to that consumer, which is there and not connected yet: the one of the consumer to come, if
/// there was none.
std::shared_ptr<ConsumerLine> IpcStream::expect(const std::string& name) {
  if (auto known = lineTo(name)) return known;
  auto line = lineTo({});
  if (!line) {
    line = std::make_shared<ConsumerLine>(weak_from_this());
    add(line);
  }
  line->expect(name);
  return line;
}

/// From a consumer that was never reached.
void IpcStream::part(const std::string& name) {
  const auto line = lineTo(name);
  if (!line) return;
  if (_lines.size() == 1) return line->expect({});  // the next one gets what waits for it
  countLost(messagesIn(line->remains().unsent), "a consumer could not be reached until it had gone");
  std::erase(_lines, line);
}

void IpcStream::add(std::shared_ptr<ConsumerLine> line) {
  _lines.push_back(std::move(line));
  _linesMade.fetch_add(1, std::memory_order_relaxed);
}

void IpcStream::reap() {
  const callbacks::MutexLock lock(_mutex);
  if (!_closed) reapLocked();
}

/// What a consumer that has gone was yet to be sent goes to the next one, if there is no other.
void IpcStream::reapLocked() {
  std::vector<ConsumerLine::Record> unsent;
  for (auto at = _lines.begin(); at != _lines.end();) {
    if (!(*at)->lost()) {
      ++at;
      continue;
    }
    auto remains = (*at)->remains();
    countLost(remains.unhandled, "the consumer in the process " + StreamFolder::processIn((*at)->name()) +
                                     " has gone without taking all that was sent");
    if (remains.unsent.size() > unsent.size()) unsent.swap(remains.unsent);
    _home->lookAgain((*at)->name());  // which removes its name if it is dead
    at = _lines.erase(at);
  }
  if (_lines.empty()) {
    add(std::make_shared<ConsumerLine>(weak_from_this()));
    for (const auto& record : unsent) _lines.front()->post(record);
  } else if (!unsent.empty()) {
    countLost(messagesIn(unsent), "a consumer has gone");
  }
}

void IpcStream::countLost(std::uint64_t messages, const std::string& why) {
  if (messages == 0) return;
  if (const auto context = _context.lock()) StreamCounters::add(context->counters.lost, messages);
  report(why + "; messages lost: " + std::to_string(messages));
}

void IpcStream::report(const std::string& text) {
  for (const auto& outlet : _errors) {
    if (const auto errors = outlet.lock()) return errors->report(text);
  }
  if (const auto context = _context.lock()) ErrorOutlet(context).report(text);
}

bool IpcStream::tick(ConsumerLine& line) {
  const callbacks::MutexLock lock(_mutex);
  if (_closed) return false;
  if (line.used() < _limit / 2) line.tellMissed();
  return line.misses();
}

}  // namespace kestrel::streams
