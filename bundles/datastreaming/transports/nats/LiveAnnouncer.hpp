#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "transports/nats/ConnectionWatcher.hpp"
#include "transports/nats/MessageHeaders.hpp"
#include "transports/nats/NatsConnection.hpp"

namespace kestrel::streams {

/// Says how far a live producer has come, once it has fallen idle and when it goes, so that receivers notice
/// what was lost behind the last message that they got or before the first one. The connection keeps it until
/// the server has the last word, also when the producer has gone. Safe from any thread.
class LiveAnnouncer final : public ReplySink, public ConnectionWatcher {
 public:
  [[nodiscard]] static std::shared_ptr<LiveAnnouncer> create(NatsConnection& connection, std::string subject,
                                                             std::uint64_t producer);

  /// The age of the message that is about to be sent, the first of which begins; for one thread at a time.
  [[nodiscard]] std::chrono::milliseconds age();
  /// The producer has sent the message of that number; for that thread.
  void sent(std::uint64_t number) { _last.store(number, std::memory_order_release); }
  /// It has given up the payload that it had begun.
  void abandoned();
  /// It will send nothing more.
  void retire();

  void replied(std::uint64_t number, natsMsg* reply) override;
  bool beat() override;
  [[nodiscard]] bool idle() override;
  void abandon(const std::string& why) override;
  void disconnected() override;
  void closed(const std::string& why) override { abandon(why); }

 private:
  static constexpr std::chrono::seconds firstInterval{1};
  static constexpr std::chrono::seconds longestInterval{30};

  LiveAnnouncer(NatsConnection& connection, std::string subject, std::uint64_t producer)
      : _connection(connection), _subject(std::move(subject)), _producer(producer) {}
  // All with the lock held.
  [[nodiscard]] bool say(ProducerEvent::Kind kind, bool ask = false);
  void sayIdle(TimePoint now);

  NatsConnection& _connection;  // which lives for as long as anybody calls
  const std::string _subject;
  const std::uint64_t _producer;
  std::string _replyPrefix;  // set by create()
  std::atomic<std::uint64_t> _last{0};
  std::atomic<TimePoint> _began{TimePoint()};

  std::mutex _mutex;
  // Guarded by _mutex.
  std::uint64_t _seen = 0;  // what _last was at the beat before
  TimePoint _due{};         // when to say again that it is idle
  std::chrono::seconds _interval = firstInterval;
  std::uint64_t _question = 0;  // the number of the newest one whether the last word has arrived
  bool _retired = false;
  bool _asked = false;      // and the answer may come
  bool _confirmed = false;  // or nothing needs to be
};

}  // namespace kestrel::streams
