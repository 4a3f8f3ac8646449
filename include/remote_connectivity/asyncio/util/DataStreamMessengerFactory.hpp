#pragma once

#include <kestrel/datastreaming/Statistics.hpp>

#include <vector>

#include "remote_connectivity/asyncio/util/IMessengerFactory.hpp"

namespace kestrel::datastreaming {
class StreamsFactory;
}

namespace remote_connectivity::asyncio::util {

/// Makes messengers over the data-streaming service of the host's service framework.
///
/// The creation operations may be called from several threads at once, but not while the factory is
/// destroyed. Messengers may outlive it.
///
/// Options of the three-argument creation, each a std::any of exactly the type named (any other type:
/// a std::bad_any_cast whose text names the key, the type expected and the one that came); unknown keys are
/// ignored, with a warning in the log where one looks like a known one misspelt:
///  - "producerACK" (std::string, "NO"): "YES" asks the service to acknowledge each message.
///  - "producerUsesBuffer" (bool, false): queue messages and send them from a pool thread at the rate below.
///  - "msgSizeLimit" (unsigned long, bytes, 1000000): payloads of this size or more go in chunks.
///  - "masgSizeRate" (unsigned long, messages a second, 50): how many messages leave each second at most.
/// A size limit of 0, or a rate of 0 with the buffer, is refused with std::invalid_argument.
/// They are read when the producer is made: with the messenger, or, where that is created without a send
/// stream, by the first send after setSendStreamId(), which throws in the creation's stead.
class REMOTE_CONNECTIVITY_EXPORT DataStreamMessengerFactory : public IMessengerFactory {
 public:
  /// Installs and starts the streaming service's bundles from the host's installation path, finds the service
  /// and configures it. An empty token or endpoint is taken from the environment variable "QXA_TOKEN" or
  /// "DS_ENDPOINT"; without an endpoint, streams live in this process.
  /// Throws std::runtime_error "No bundles for DataStreaming" where the bundle directory holds none, and what
  /// the framework or the service throws. A missing service is not an error here: creating a messenger is.
  DataStreamMessengerFactory(std::string token, std::string endpoint);
  DataStreamMessengerFactory(const DataStreamMessengerFactory&) = delete;
  DataStreamMessengerFactory& operator=(const DataStreamMessengerFactory&) = delete;
  ~DataStreamMessengerFactory() override;

  /// Hands the service a new token or endpoint, with the constructor's fallbacks. Messengers that exist keep
  /// their connection.
  void configure(std::string token, std::string endpoint);

  [[nodiscard]] std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger() override;
  [[nodiscard]] std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger(
      std::string sendStreamId, std::string receiveStreamId) override;
  [[nodiscard]] std::unique_ptr<ISendReceiveMessenger> createSendReceiveMessenger(
      std::string sendStreamId, std::string receiveStreamId,
      const std::unordered_map<std::string, std::any>& options) override;

  /// What each stream of this factory's messengers has carried and lost, and how the connection behind it
  /// stands, in the order of opening; the service sums up streams that ended long ago in one last entry.
  /// Empty where the host has no service. May be called from any thread, and waits while a messenger is
  /// connecting.
  [[nodiscard]] std::vector<kestrel::datastreaming::StreamStatistics> statistics() const;

 private:
  std::shared_ptr<kestrel::datastreaming::StreamsFactory> _streamsFactory;  // set by the constructor only
};

}  // namespace remote_connectivity::asyncio::util
