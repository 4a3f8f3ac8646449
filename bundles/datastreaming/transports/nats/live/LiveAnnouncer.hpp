#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/nats/connection/ConnectionWatcher.hpp"
#include "transports/nats/connection/NatsConnection.hpp"
#include "transports/nats/live/Announcement.hpp"

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
  LiveAnnouncer(NatsConnection& connection, std::string subject, std::uint64_t producer)
      : _connection(connection), _subject(std::move(subject)), _producer(producer) {}
  void announce() KESTREL_REQUIRES(_mutex);
  [[nodiscard]] bool say(ProducerEvent::Kind kind) KESTREL_REQUIRES(_mutex);

  NatsConnection& _connection;  // which lives for as long as anybody calls
  const std::string _subject;
  const std::uint64_t _producer;
  std::string _replyPrefix;  // set by create()
  std::atomic<std::uint64_t> _last{0};
  std::atomic<TimePoint> _began{TimePoint()};

  callbacks::Mutex _mutex;
  Announcement _announcement KESTREL_GUARDED_BY(_mutex);
  std::uint64_t _question KESTREL_GUARDED_BY(_mutex) =
      0;  // the number of the newest one whether the last word has arrived
};

}  // namespace kestrel::streams
