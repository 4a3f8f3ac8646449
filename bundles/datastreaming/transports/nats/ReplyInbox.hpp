#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "transports/nats/NatsHandles.hpp"

namespace kestrel::streams {

/// Waits for what the server answers to messages of its own. The first three are called on the inbox's
/// thread, one call at a time.
class ReplySink {
 public:
  virtual ~ReplySink() = default;
  virtual void replied(std::uint64_t number, natsMsg* reply) = 0;
  /// The server had nobody to give a message to that wanted an answer. The client does not say which, so
  /// every sink is told.
  virtual void unreceived() {}
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

  ReplyInbox() = default;
  ~ReplyInbox();
  ReplyInbox(const ReplyInbox&) = delete;
  ReplyInbox& operator=(const ReplyInbox&) = delete;

  void open(natsConnection* connection) { _connection = connection; }

  /// Adds a sink and keeps it until its beat() returns false; returns what its reply subjects begin with: a
  /// number, written in decimal, comes behind. Throws std::runtime_error.
  [[nodiscard]] std::string add(const std::shared_ptr<ReplySink>& sink);

  /// Whether no sink waits for a reply.
  [[nodiscard]] bool idle();

  /// Ends the thread, then abandons the sinks.
  void close(const std::string& why);

 private:
  void begin();
  void run(natsSubscription* subscription);
  void dispatch(natsMsg* reply);
  void beat();
  [[nodiscard]] std::vector<std::pair<std::uint64_t, std::shared_ptr<ReplySink>>> sinks();

  natsConnection* _connection = nullptr;

  std::mutex _mutex;
  // Guarded by _mutex.
  std::string _prefix;
  NatsSubscription _subscription;
  std::thread _thread;
  std::uint64_t _lastKey = 0;
  std::unordered_map<std::uint64_t, std::shared_ptr<ReplySink>> _sinks;
};

}  // namespace kestrel::streams
