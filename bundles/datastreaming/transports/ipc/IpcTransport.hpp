#pragma once

#include <string>

#include "sequencing/PayloadSequencer.hpp"
#include "transports/Transport.hpp"
#include "transports/ipc/IpcStreams.hpp"

namespace kestrel::streams {

/// Streams between the processes of one machine that use the same folder.
class IpcTransport final : public Transport {
 public:
  /// A process may be stopped for long; when it ends, its connections tell.
  static constexpr std::chrono::hours longestSilence{1};

  /// Throws std::runtime_error that names the folder if it cannot be used.
  explicit IpcTransport(const std::string& folder, std::uint64_t queueLimit = ByteBudget::defaultLimit,
                        const PayloadSequencer::Limits& limits = {.silence = longestSilence});

  std::shared_ptr<StreamLink> open(std::shared_ptr<StreamContext> context) override;

 private:
  const std::shared_ptr<IpcStreams> _streams;
  const PayloadSequencer::Limits _limits;
};

}  // namespace kestrel::streams
