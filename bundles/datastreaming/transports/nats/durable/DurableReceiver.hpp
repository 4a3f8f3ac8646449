#pragma once

#include <memory>
#include <string>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/nats/NatsReceiver.hpp"
#include "transports/nats/durable/DurableIntake.hpp"
#include "transports/nats/durable/DurableStore.hpp"
#include "transports/nats/durable/ReaderLife.hpp"

namespace kestrel::streams {

/// Receives what is stored, beginning with what was not acknowledged yet; acknowledges a payload when the
/// data callback has returned for all of it.
class DurableReceiver final : public NatsReceiver, public std::enable_shared_from_this<DurableReceiver> {
 public:
  DurableReceiver(std::shared_ptr<StreamContext> context, const std::shared_ptr<NatsConnection>& connection,
                  std::shared_ptr<const DurableStore> store);

  void open() override;
  void run() override;

 private:
  class Settlement;

  void interrupt() override;
  [[nodiscard]] std::shared_ptr<Feed> subscribe(const std::shared_ptr<Session>& session,
                                                const std::string& subject);
  void replaceSubscription(std::shared_ptr<Feed> subscription);
  void attach(bool first);
  void begin(const DurableStore::Claim& claim);
  void reportExpired(std::uint64_t messages);
  void noticeNewStore(const DurableStore::Claim& claim);
  bool keepAttached();
  void receive();
  void take(std::shared_ptr<natsMsg> message);
  void takeUnshown();
  void takeStored(const DeliveryNumbers& numbers, const std::string& reply, Incoming incoming);
  void takeSignal(natsMsg* message);
  void resume(const std::string& subject);
  void detach();
  void acknowledge(const std::string& subject);
  void confirmAcknowledgements();
  void settled(std::uint64_t number);

  const std::shared_ptr<const DurableStore> _store;
  const ReaderSubjects _subjects;
  callbacks::Mutex _mutex;
  std::shared_ptr<Feed> _waitedFor KESTREL_GUARDED_BY(_mutex);  // what interrupt() ends

  // Set by open(), then the delivery thread's own.
  std::shared_ptr<Feed> _subscription;
  std::int64_t _created = 0;  // when the store that is read was made
  DurableIntake<Incoming> _intake;
  ReaderLife _life;
  std::string _lastAcknowledged;  // where the newest acknowledgement went
};

}  // namespace kestrel::streams
