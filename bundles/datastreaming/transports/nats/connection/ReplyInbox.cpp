#include "transports/nats/connection/ReplyInbox.hpp"

#include <charconv>
#include <optional>
#include <string_view>

#include "delivery/Log.hpp"
#include "delivery/ThreadName.hpp"

namespace kestrel::streams {

namespace {

/// Which sink a reply is for, and which of its messages.
struct Address {
  std::uint64_t key = 0;
  std::uint64_t number = 0;
};

/// Reads what stands behind the prefix: "key.number", both decimal.
std::optional<Address> readAddress(std::string_view subject, std::string_view prefix) {
  if (!subject.starts_with(prefix)) return std::nullopt;
  Address read;
  const char* const end = subject.data() + subject.size();
  const auto [dot, noKey] = std::from_chars(subject.data() + prefix.size(), end, read.key);
  if (noKey != std::errc() || dot == end || *dot != '.') return std::nullopt;
  const auto [rest, noNumber] = std::from_chars(dot + 1, end, read.number);
  if (noNumber != std::errc() || rest != end) return std::nullopt;
  return read;
}

}  // namespace

ReplyInbox::~ReplyInbox() {
  close("the connection was closed");
}

std::string ReplyInbox::add(const std::shared_ptr<ReplySink>& sink) {
  const callbacks::MutexLock lock(_mutex);
  const std::uint64_t key = ++_lastKey;
  _sinks.emplace(key, sink);
  if (!_thread.joinable()) _thread = std::thread([this] { run(); });
  return _prefix + std::to_string(key) + ".";
}

bool ReplyInbox::idle() {
  for (const auto& [key, sink] : sinks()) {
    if (!sink->idle()) return false;
  }
  return true;
}

void ReplyInbox::close(const std::string& why) {
  std::thread thread;
  {
    const callbacks::MutexLock lock(_mutex);
    thread.swap(_thread);
  }
  if (!thread.joinable()) return;
  _subscription->end();
  thread.join();
  for (const auto& [key, sink] : sinks()) sink->abandon(why);
}

void ReplyInbox::run() {
  nameThisThread("kestrel-replies");
  auto nextBeat = std::chrono::steady_clock::now() + interval;
  for (;;) {
    natsMsg* raw = nullptr;
    const natsStatus status = _subscription->next(&raw, interval);
    const NatsMessage reply(raw);
    if (status == NATS_OK) {
      dispatch(reply.get());
    } else if (status == NATS_NO_RESPONDERS) {
      tellUnreceived();
    } else if (status == NATS_CONNECTION_CLOSED) {
      return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < nextBeat) continue;
    nextBeat = now + interval;
    beat();
  }
}

void ReplyInbox::tellUnreceived() {
  bool waited = false;
  for (const auto& [key, sink] : sinks()) waited = sink->unreceived() || waited;
  if (!waited) noteForeign();
}

/// Passed over: the server sends no status here that nobody waits for.
void ReplyInbox::noteForeign() {
  _foreign.add();
  if (const auto count = _foreign.due(Clock::now()); count > 0) {
    logError(std::to_string(count) + " answers came that nobody waits for; has another program sent them?");
  }
}

void ReplyInbox::dispatch(natsMsg* reply) {
  const char* status = nullptr;
  if (natsMsgHeader_Get(reply, "Status", &status) == NATS_OK) return noteForeign();
  const auto address = readAddress(natsMsg_GetSubject(reply), _prefix);
  if (!address) return;
  std::shared_ptr<ReplySink> sink;
  {
    const callbacks::MutexLock lock(_mutex);
    const auto found = _sinks.find(address->key);
    if (found == _sinks.end()) return;
    sink = found->second;
  }
  sink->replied(address->number, reply);
}

void ReplyInbox::beat() {
  for (const auto& [key, sink] : sinks()) {
    if (sink->beat()) continue;
    const callbacks::MutexLock lock(_mutex);
    _sinks.erase(key);
  }
}

std::vector<std::pair<std::uint64_t, std::shared_ptr<ReplySink>>> ReplyInbox::sinks() {
  const callbacks::MutexLock lock(_mutex);
  return {_sinks.begin(), _sinks.end()};
}

}  // namespace kestrel::streams
