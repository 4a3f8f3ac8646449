#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/Throttle.hpp"
#include "transports/nats/connection/Subscription.hpp"

namespace kestrel::streams {

/// Waits for what the server answers to messages of its own. The first three are called on the inbox's
/// thread, one call at a time.
class ReplySink {
 public:
  virtual ~ReplySink() = default;
  virtual void replied(std::uint64_t number, natsMsg* reply) = 0;
  /// The server had nobody to give a message to that wanted an answer. The client does not say which, so
  /// every sink is told. Returns whether it waits for answers to such messages.
  virtual bool unreceived() { return false; }
  /// Comes about every ReplyInbox::interval, for time-outs. Returns false once no reply can matter any more.
  virtual bool beat() { return true; }
  /// Whether no reply is waited for. From any thread.
  [[nodiscard]] virtual bool idle() = 0;
  /// No reply will come any more.
  virtual void abandon(const std::string& why) = 0;
};

/// The reply subjects of one connection: one subscription, and one thread that starts with the first sink.
/// Safe from any thread.
class ReplyInbox {
 public:
  static constexpr std::chrono::milliseconds interval{100};

  /// The inbox must be nobody else's.
  explicit ReplyInbox(const std::string& inbox) : _prefix(inbox + ".") {}
  ~ReplyInbox();
  ReplyInbox(const ReplyInbox&) = delete;
  ReplyInbox& operator=(const ReplyInbox&) = delete;

  /// What to subscribe to.
  [[nodiscard]] std::string subject() const { return _prefix + ">"; }
  /// Where that comes in; before any sink is added.
  void open(std::shared_ptr<Subscription> subscription) { _subscription = std::move(subscription); }

  /// Adds a sink and keeps it until its beat() returns false; returns what its reply subjects begin with: a
  /// number, written in decimal, comes behind.
  [[nodiscard]] std::string add(const std::shared_ptr<ReplySink>& sink);

  /// Whether no sink waits for a reply.
  [[nodiscard]] bool idle();

  /// Ends the thread, then abandons the sinks.
  void close(const std::string& why);

 private:
  void run();
  void dispatch(natsMsg* reply);
  void tellUnreceived();
  void noteForeign();
  void beat();
  [[nodiscard]] std::vector<std::pair<std::uint64_t, std::shared_ptr<ReplySink>>> sinks();

  const std::string _prefix;
  Throttle _foreign;  // the thread's own
  std::shared_ptr<Subscription> _subscription;

  callbacks::Mutex _mutex;
  std::thread _thread KESTREL_GUARDED_BY(_mutex);
  std::uint64_t _lastKey KESTREL_GUARDED_BY(_mutex) = 0;
  std::unordered_map<std::uint64_t, std::shared_ptr<ReplySink>> _sinks KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::streams
