#pragma once

#include <memory>

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
  /// How a message is taken over.
  struct Taken {
    memory::SharedBytes owner;  ///< of its bytes if they are shared, else they are copied
    std::uint64_t cost = 0;
  };
  [[nodiscard]] Taken takeOver(const Outgoing& message);

  const std::shared_ptr<MemoryStream> _stream;
  const bool _acknowledge;
  std::weak_ptr<const std::uint8_t> _shared;  // the bytes of the payload that goes on, if they are; as _heard
  std::uint64_t _sharedBy = 0;                // the stream's queues when it began; as _heard
  bool _heard = false;                        // a message was accepted; guarded by the lock of ProducerBase
};

}  // namespace kestrel::streams
