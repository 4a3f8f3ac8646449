#pragma once

#include <any>
#include <memory>
#include <string>
#include <unordered_map>

#include "remote_connectivity/asyncio/util/ISendReceiveMessenger.hpp"

namespace remote_connectivity::asyncio::util {

/// Makes messengers. The creation operations may be called from several threads at once.
class REMOTE_CONNECTIVITY_EXPORT IMessengerFactory {
 public:
  virtual ~IMessengerFactory();

  /// A messenger over two freshly named streams.
  [[nodiscard]] virtual std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger() = 0;

  /// A messenger that sends on the first stream and receives from the second, with a producer buffer.
  [[nodiscard]] virtual std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger(
      std::string sendStreamId, std::string receiveStreamId) = 0;

  /// The same with options of the caller's; see DataStreamMessengerFactory.
  [[nodiscard]] virtual std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger(
      std::string sendStreamId, std::string receiveStreamId,
      const std::unordered_map<std::string, std::any>& options) = 0;
};

}  // namespace remote_connectivity::asyncio::util
