#pragma once

#include <string>

#include "transports/nats/NatsReceiver.hpp"

namespace kestrel::streams {

/// Receives what is published while it listens.
class LiveReceiver final : public NatsReceiver {
 public:
  LiveReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<NatsConnection> connection,
               std::string subject, const PayloadSequencer::Limits& limits = {});

  void open() override;
  void run() override;

 private:
  void interrupt() override;
  void reportDropped();

  const std::string _subject;
  std::shared_ptr<Subscription> _subscription;  // set by open()
};

}  // namespace kestrel::streams
