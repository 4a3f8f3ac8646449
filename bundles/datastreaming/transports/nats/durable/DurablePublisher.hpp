#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>

#include "delivery/ErrorOutlet.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/nats/connection/ConnectionWatcher.hpp"
#include "transports/nats/connection/NatsConnection.hpp"
#include "transports/nats/durable/PublishLedger.hpp"

namespace kestrel::streams {

/// Publishes the messages of one producer until each is stored. The connection keeps it until then, also when
/// the producer has gone. Safe from any thread.
class DurablePublisher final : public ReplySink, public ConnectionWatcher {
 public:
  [[nodiscard]] static std::shared_ptr<DurablePublisher> create(NatsConnection& connection,
                                                                std::shared_ptr<StreamContext> context,
                                                                std::shared_ptr<ErrorOutlet> errors);

  /// Where the server is to answer about the message of that number.
  [[nodiscard]] std::string replySubject(std::uint64_t sequence) const {
    return _replyPrefix + std::to_string(sequence);
  }

  /// Takes a message over; or returns why not. The numbers must grow.
  [[nodiscard]] std::optional<std::string> submit(PublishLedger::Entry entry);

  /// Nothing more will be submitted.
  void retire() { _retired = true; }

  void replied(std::uint64_t number, natsMsg* reply) override;
  bool unreceived() override;
  bool beat() override;
  [[nodiscard]] bool idle() override;
  void abandon(const std::string& why) override;
  void reconnected() override;
  void closed(const std::string& why) override { abandon(why); }

 private:
  DurablePublisher(NatsConnection& connection, std::shared_ptr<StreamContext> context,
                   std::shared_ptr<ErrorOutlet> errors);
  void publish() KESTREL_REQUIRES(_mutex);
  void beginSession() KESTREL_REQUIRES(_mutex);
  void giveUp(std::vector<PublishLedger::Entry> entries, const std::string& why);

  NatsConnection& _connection;  // which lives for as long as anybody calls
  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<ErrorOutlet> _errors;
  std::string _replyPrefix;
  std::atomic<bool> _retired{false};

  callbacks::Mutex _mutex;
  PublishLedger _ledger KESTREL_GUARDED_BY(_mutex);
  std::uint64_t _session KESTREL_GUARDED_BY(_mutex) = 0;  // the one that _ledger speaks of
  std::optional<std::string> _closed KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::streams
