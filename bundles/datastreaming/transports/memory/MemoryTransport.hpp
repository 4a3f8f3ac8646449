#pragma once

#include "sequencing/PayloadSequencer.hpp"
#include "transports/Transport.hpp"
#include "transports/memory/MemoryStream.hpp"

namespace kestrel::streams {

/// Streams within this process. Instances over the same MemoryStreams meet in the same names.
class MemoryTransport final : public Transport {
 public:
  explicit MemoryTransport(MemoryStreams& streams = MemoryStreams::shared(),
                           const PayloadSequencer::Limits& limits = {})
      : _streams(streams), _limits(limits) {}

  std::shared_ptr<StreamLink> open(std::shared_ptr<StreamContext> context) override;

 private:
  MemoryStreams& _streams;
  const PayloadSequencer::Limits _limits;
};

}  // namespace kestrel::streams
