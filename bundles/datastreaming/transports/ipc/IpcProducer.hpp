#pragma once

#include <memory>

#include "transports/PieceSharing.hpp"
#include "transports/ProducerBase.hpp"
#include "transports/ServiceSettings.hpp"
#include "transports/ipc/IpcStream.hpp"

namespace kestrel::streams {

/// Sends to the consumers of a stream in all processes.
class IpcProducer final : public ProducerBase {
 public:
  IpcProducer(std::shared_ptr<StreamContext> context, std::shared_ptr<IpcStream> stream,
              const ProducerSettings& settings)
      : ProducerBase(std::move(context)), _stream(std::move(stream)), _acknowledge(settings.acknowledge) {}
  ~IpcProducer() override;

 protected:
  void open() override { _stream->join(errors()); }
  Outcome transmit(const Outgoing& message) override;
  void abandonPayload() override;

 private:
  const std::shared_ptr<IpcStream> _stream;
  const bool _acknowledge;
  // Guarded by the lock of ProducerBase.
  PieceSharing _sharing;
  std::uint64_t _last = 0;  // message that was accepted
};

}  // namespace kestrel::streams
