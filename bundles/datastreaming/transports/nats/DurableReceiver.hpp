#pragma once

#include <memory>
#include <string>

#include "transports/nats/DurablePosition.hpp"
#include "transports/nats/DurableStore.hpp"
#include "transports/nats/NatsReceiver.hpp"
#include "transports/nats/ReaderSubjects.hpp"
#include "transports/nats/Resequencer.hpp"

namespace kestrel::streams {

/// Receives what is stored, beginning with what was not acknowledged yet; acknowledges a payload when the
/// data callback has returned for all of it.
class DurableReceiver final : public NatsReceiver, public std::enable_shared_from_this<DurableReceiver> {
 public:
  DurableReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
                  std::shared_ptr<const DurableStore> store);

  void open() override;
  void run() override;

 private:
  class Settlement;

  void interrupt() override;
  [[nodiscard]] std::shared_ptr<natsSubscription> subscribe(const std::shared_ptr<NatsSession>& session,
                                                            const std::string& subject);
  void replaceSubscription(std::shared_ptr<natsSubscription> subscription);
  void attach(bool first);
  void reportExpired(const DurableStore::Claim& claim);
  void noticeNewStore(const DurableStore::Claim& claim);
  bool keepAttached();
  void receive();
  void giveUpGaps();
  void take(std::shared_ptr<natsMsg> message);
  void takeUnshown();
  void takeStored(const DeliveryNumbers& numbers, const std::string& reply, Incoming incoming);
  void putInOrder(Incoming incoming);
  void takeSignal(natsMsg* message);
  void resume(const std::string& subject);
  void detach();
  void acknowledge(const std::string& subject);
  void confirmAcknowledgements();
  void settled(std::uint64_t number);

  const std::shared_ptr<const DurableStore> _store;
  const ReaderSubjects _subjects;
  std::mutex _mutex;
  std::shared_ptr<natsSubscription> _waitedFor;  // what interrupt() ends; guarded by _mutex

  // Set by open(), then the delivery thread's own.
  std::shared_ptr<natsSubscription> _subscription;
  std::uint64_t _session = 0;  // over which it was attached
  DurablePosition _position;
  std::int64_t _created = 0;  // when the store of _position was made
  Resequencer<Incoming> _order;
  std::string _lastAcknowledged;  // where the newest acknowledgement went
  std::uint64_t _count = 0;       // of what this reader was sent
  std::uint64_t _reached = 0;     // the highest number of that
  bool _attached = false;
  TimePoint _since{};        // when it was attached last
  int _setbacks = 0;         // in a row: attempts that failed, and readers that did not last
  bool _complained = false;  // about not being able to attach
  TimePoint _heard{};        // when anything came last
  TimePoint _nextAttempt{};
  TimePoint _nextTick{};
};

}  // namespace kestrel::streams
