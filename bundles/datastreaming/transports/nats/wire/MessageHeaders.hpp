#pragma once

#include <kestrel/datastreaming/Types.hpp>
#include <optional>
#include <string>
#include <variant>

#include "sequencing/ProducerEvent.hpp"
#include "sequencing/Stamp.hpp"
#include "transports/nats/NatsHandles.hpp"

namespace kestrel::streams {

/// Names of the headers of our messages. Never destroyed: messages come and go until the process has ended.
struct MessageHeaders {
  inline static const std::string& stamp = *new const std::string("Kestrel-Stamp");
  inline static const std::string& event = *new const std::string("Kestrel-Event");  ///< instead of a stamp
  inline static const std::string& attributePrefix = *new const std::string("Kestrel-A-");
  inline static const std::string& messageId =
      *new const std::string("Nats-Msg-Id");  ///< the server's own, for its duplicate check
};

/// "version.producer.sequence.payload.index.refused.flags": the producer in hexadecimal; flags are 'c' for a
/// piece, 'm' when more pieces follow, 'a' when the payload before it was given up. Or with ".age" behind.
[[nodiscard]] std::string writeStamp(const Stamp& stamp);
[[nodiscard]] std::optional<Stamp> readStamp(const char* text);

/// What a message says that it is: neither, if it is of no producer of ours.
using MessageIdentity = std::variant<std::monostate, Stamp, ProducerEvent>;

/// "gone.producer.after", "abandoned.producer.after" or "idle.producer.after", the producer in hexadecimal;
/// or with ".age" behind, in milliseconds.
[[nodiscard]] std::string writeEvent(const ProducerEvent& event);
[[nodiscard]] std::optional<ProducerEvent> readEvent(const std::string& text);

/// 'i' and the number, or 's' and the text with every byte outside '!' to '~', and '%', as %XX.
[[nodiscard]] std::string writeAttribute(const datastreaming::AttributeValue& value);
[[nodiscard]] std::optional<datastreaming::AttributeValue> readAttribute(const std::string& text);

/// Puts headers on a message and keeps the size that they take on the wire.
class HeaderWriter {
 public:
  explicit HeaderWriter(natsMsg* message) : _message(message) {}

  /// Both throw std::runtime_error if the client cannot take the header.
  void add(const std::string& name, const std::string& value);
  void add(const datastreaming::AttributeMap& attributes);

  [[nodiscard]] std::uint64_t size() const { return _size; }

 private:
  natsMsg* const _message;
  std::uint64_t _size = 12;  // the version line and the empty line at the end
};

/// Reads the attributes of a message; nothing if one of them is damaged.
[[nodiscard]] std::optional<datastreaming::AttributeMap> readAttributes(natsMsg* message);

}  // namespace kestrel::streams
