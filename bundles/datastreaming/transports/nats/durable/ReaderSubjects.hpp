#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "transports/nats/wire/SubjectNames.hpp"

namespace kestrel::streams {

/// What the server says of a stored message that it sends.
struct DeliveryNumbers {
  std::uint64_t stored = 0;  ///< its number in the store
  std::uint64_t count = 0;   ///< counts what this reader was sent
};

/// The subjects by which the reader of one store and the server understand each other. They come in messages,
/// which anybody may have sent: only those that belong to this store may be answered. A value object.
///
/// The server writes "$JS.ACK.store.reader.deliveries.number.count.time.left" and
/// "$JS.FC.store.reader.token"; newer ones may put domain and account in front of the store, and a token
/// behind the end.
class ReaderSubjects {
 public:
  explicit ReaderSubjects(const SubjectNames& names) : _store(names.store) {}

  /// What the reply subject of a message says, if that is where this reader acknowledges a stored message.
  [[nodiscard]] std::optional<DeliveryNumbers> readDelivery(std::string_view reply) const;
  /// Whether an empty message to it tells the server to go on sending to this reader, and nothing else.
  [[nodiscard]] bool isFlowControl(std::string_view subject) const;
  /// Where to acknowledge a message whose reply subject is not known.
  [[nodiscard]] std::string acknowledgement(const DeliveryNumbers& numbers) const;

 private:
  const std::string _store;
};

}  // namespace kestrel::streams
