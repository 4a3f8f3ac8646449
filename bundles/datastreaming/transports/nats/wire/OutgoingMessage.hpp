#pragma once

#include <kestrel/datastreaming/Types.hpp>
#include <memory>
#include <string>
#include <variant>

#include "sequencing/Stamp.hpp"
#include "transports/nats/NatsHandles.hpp"
#include "transports/nats/wire/MessageHeaders.hpp"

namespace kestrel::streams {

/// What a message of the C client is made of.
struct MessageParts {
  const std::string& subject;
  const std::string& reply;  ///< empty for none
  const Stamp& stamp;
  const std::uint8_t* data;
  std::uint64_t size;
  const datastreaming::AttributeMap& attributes;
  bool withId = false;  ///< name it for the server's duplicate check
};

struct OutgoingMessage {
  std::shared_ptr<natsMsg> message;
  std::uint64_t wireSize = 0;  ///< headers and bytes

  /// The memory that it takes while it waits: the client's own of a message with a header is about that much.
  [[nodiscard]] std::uint64_t cost() const { return wireSize + 400; }
};

/// Why a message of so many bytes, of them so many headers (0: not known), cannot be sent to a server with
/// that limit.
[[nodiscard]] std::string tooLarge(std::uint64_t size, std::uint64_t headers, std::uint64_t limit);

/// Makes the message; or returns why it cannot be sent to a server that takes that many bytes.
[[nodiscard]] std::variant<OutgoingMessage, std::string> makeMessage(const MessageParts& parts,
                                                                     std::uint64_t maxPayload);

/// A message that carries news of a producer; throws std::runtime_error.
[[nodiscard]] std::shared_ptr<natsMsg> makeEvent(const std::string& subject, const ProducerEvent& event,
                                                 const std::string& reply = {});

/// A message without headers; throws std::runtime_error.
[[nodiscard]] std::shared_ptr<natsMsg> makeSignal(const std::string& subject, const std::string& text = {});

}  // namespace kestrel::streams
