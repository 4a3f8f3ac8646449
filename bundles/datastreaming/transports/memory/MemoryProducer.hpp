#pragma once

#include <memory>

#include "transports/PieceSharing.hpp"
#include "transports/ProducerBase.hpp"
#include "transports/ServiceSettings.hpp"
#include "transports/memory/MemoryStream.hpp"

namespace kestrel::streams {

/// Puts messages on a stream within the process.
class MemoryProducer final : public ProducerBase {
 public:
  MemoryProducer(std::shared_ptr<StreamContext> context, std::shared_ptr<MemoryStream> stream,
                 const ProducerSettings& settings);
  ~MemoryProducer() override;

 protected:
  Outcome transmit(const Outgoing& message) override;
  void abandonPayload() override;

 private:
  const std::shared_ptr<MemoryStream> _stream;
  const bool _acknowledge;
  // Guarded by the lock of ProducerBase.
  PieceSharing _sharing;
  bool _heard = false;  // a message was accepted
};

}  // namespace kestrel::streams
