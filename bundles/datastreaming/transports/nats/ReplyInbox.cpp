#include "transports/nats/ReplyInbox.hpp"

#include <charconv>
#include <cstring>

#include "transports/shared/Log.hpp"
#include "transports/shared/ThreadName.hpp"

namespace kestrel::streams {

ReplyInbox::~ReplyInbox() {
  close("the connection was closed");
}

std::string ReplyInbox::add(const std::shared_ptr<ReplySink>& sink) {
  const std::lock_guard lock(_mutex);
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
    const std::lock_guard lock(_mutex);
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
  const char* subject = natsMsg_GetSubject(reply);
  std::shared_ptr<ReplySink> sink;
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(_mutex);
    const char* const end = subject + std::strlen(subject);
    if (static_cast<std::size_t>(end - subject) <= _prefix.size()) return;
    std::uint64_t key = 0;
    const auto [dot, error] = std::from_chars(subject + _prefix.size(), end, key);
    if (error != std::errc() || dot == end) return;
    if (std::from_chars(dot + 1, end, number).ptr != end) return;
    const auto found = _sinks.find(key);
    if (found == _sinks.end()) return;
    sink = found->second;
  }
  sink->replied(number, reply);
}

void ReplyInbox::beat() {
  for (const auto& [key, sink] : sinks()) {
    if (sink->beat()) continue;
    const std::lock_guard lock(_mutex);
    _sinks.erase(key);
  }
}

std::vector<std::pair<std::uint64_t, std::shared_ptr<ReplySink>>> ReplyInbox::sinks() {
  const std::lock_guard lock(_mutex);
  return {_sinks.begin(), _sinks.end()};
}

}  // namespace kestrel::streams
