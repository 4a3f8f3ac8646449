#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "transports/nats/connection/Session.hpp"

namespace kestrel::streams {

/// The client's messages need its library set up, which connecting does else.
inline const natsStatus librarySetUp = nats_Open(-1);

inline NatsMessage newMessage(const std::string& subject) {
  natsMsg* made = nullptr;
  require(natsMsg_Create(&made, subject.c_str(), nullptr, "", 0), "making a message");
  return NatsMessage(made);
}
inline std::shared_ptr<natsMsg> message(const std::string& subject) {
  return newMessage(subject);
}

/// What happened, noted by any thread.
class Notes {
 public:
  void note(const std::string& event) {
    const std::lock_guard lock(_mutex);
    _events.push_back(event);
  }
  [[nodiscard]] std::size_t count() {
    const std::lock_guard lock(_mutex);
    return _events.size();
  }
  /// All since it was asked last, with commas between.
  [[nodiscard]] std::string take() {
    const std::lock_guard lock(_mutex);
    std::string joined;
    for (const auto& event : std::exchange(_events, {})) joined += (joined.empty() ? "" : ", ") + event;
    return joined;
  }

 private:
  std::mutex _mutex;
  std::vector<std::string> _events;
};

/// What a test lets come in.
class FakeFeed final : public Feed {
 public:
  void bring(const std::string& subject, const char* status = nullptr) {
    const std::lock_guard lock(_mutex);
    const auto& made = _messages.emplace_back(newMessage(subject));
    if (status != nullptr) require(natsMsgHeader_Set(made.get(), "Status", status), "making a header");
    _changed.notify_all();
  }
  void drop(std::uint64_t count) { _dropped += count; }
  [[nodiscard]] bool ended() {
    const std::lock_guard lock(_mutex);
    return _ended;
  }

  natsStatus next(natsMsg** message, std::chrono::milliseconds wait) override {
    std::unique_lock lock(_mutex);
    _changed.wait_for(lock, wait, [this] { return _ended || !_messages.empty(); });
    if (_ended) return NATS_INVALID_SUBSCRIPTION;
    if (_messages.empty()) return NATS_TIMEOUT;
    *message = _messages.front().release();
    _messages.pop_front();
    return NATS_OK;
  }
  std::uint64_t waiting() override {
    const std::lock_guard lock(_mutex);
    return _messages.size();
  }
  std::uint64_t dropped() override { return _dropped; }
  void end() override {
    const std::lock_guard lock(_mutex);
    _ended = true;
    _changed.notify_all();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<NatsMessage> _messages;
  bool _ended = false;
  std::uint64_t _dropped = 0;
};

/// A session without client or socket: it writes down what is done with it, in `log`, and a test says what
/// its socket takes and what else happens meanwhile. Locked where the connection's own threads use it.
class FakeSession final : public Session {
 public:
  explicit FakeSession(std::uint64_t number) : _number(number) {}

  // What a test decides.
  std::atomic<bool> lives = true;
  bool onlyLoopWrites = false;
  bool refusesSubscriptions = false;
  bool socketTakes = true;                                            ///< else flush() leaves everything
  int held = 0;                                                       ///< bytes that are buffered
  int messageBytes = 1;                                               ///< what a message adds to them
  Written answer;                                                     ///< to the next append()
  std::function<void(const std::string&)> meanwhile = [](auto&&) {};  ///< runs within append()

  [[nodiscard]] std::string log() { return _log.take(); }
  [[nodiscard]] std::shared_ptr<FakeFeed> feed(const std::string& subject) {
    const std::lock_guard lock(_mutex);
    return _feeds[subject];
  }

  std::uint64_t number() const override { return _number; }
  bool usable() const override { return lives; }
  std::uint64_t maxPayload() const override { return 1 << 20; }
  std::string failure() const override { return {}; }
  natsConnection* handle() const override { return nullptr; }
  Written append(const Message& message) override {
    const std::string subject = natsMsg_GetSubject(static_cast<natsMsg*>(message.get()));
    const Written written = std::exchange(answer, {});
    if (written.kind == Written::Kind::taken) _log.note(subject);
    held += written.kind == Written::Kind::taken ? messageBytes : 0;
    if (written.kind == Written::Kind::lost) lives = false;
    meanwhile(subject);
    return written;
  }
  int buffered() const override { return held; }
  bool flush() override {
    _log.note("flush");
    if (socketTakes) held = 0;
    return held == 0;
  }
  bool loopWrites() const override { return onlyLoopWrites; }
  void wake() override { _log.note("wake"); }
  void wakeLater() override { _log.note("wake later"); }
  std::shared_ptr<Feed> subscribe(const std::string& subject, PendingLimits) override {
    if (refusesSubscriptions) throw std::runtime_error("no subscription");
    _log.note("subscribe " + subject);
    const std::lock_guard lock(_mutex);
    return _feeds[subject] = std::make_shared<FakeFeed>();
  }
  void stop() override { _log.note("stop"); }

 private:
  const std::uint64_t _number;
  Notes _log;
  std::mutex _mutex;
  std::map<std::string, std::shared_ptr<FakeFeed>> _feeds;
};

}  // namespace kestrel::streams
