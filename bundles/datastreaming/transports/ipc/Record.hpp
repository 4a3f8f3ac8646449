#pragma once

#include <cstddef>
#include <cstdint>
#include <kestrel/datastreaming/Types.hpp>
#include <kestrel/memory/Buffer.hpp>
#include <memory>
#include <optional>
#include <span>
#include <variant>

#include "sequencing/ProducerEvent.hpp"
#include "sequencing/Stamp.hpp"

/// What goes over a socket between two processes: packets, each of one or more records. All numbers are
/// little-endian. A record begins with its length in all (32 bits) and its kind (32 bits);
/// docs/wire-format.md describes the rest.
namespace kestrel::streams {

/// The largest record, and the largest packet.
inline constexpr std::size_t longestRecord = std::size_t{112} << 10;
inline constexpr std::size_t longestPacket = std::size_t{128} << 10;
/// Of these as many as there are records in a packet that bring one.
inline constexpr std::size_t mostDescriptors = 32;
/// Attributes that take more go into the block of memory, before the bytes.
inline constexpr std::size_t longestAttributes = std::size_t{8} << 10;
/// For they take more memory where they are read.
inline constexpr std::size_t mostAttributes = std::size_t{16} << 20;

/// A record on its way out, the same for all consumers. Nobody changes it once it is made.
class OutgoingRecord {
 public:
  /// The first one of each connection. It brings the descriptor of the page in which the consumer keeps its
  /// accounts, which the caller keeps open.
  [[nodiscard]] static std::shared_ptr<OutgoingRecord> hello(int accounts);
  [[nodiscard]] static std::shared_ptr<OutgoingRecord> event(const ProducerEvent& event);
  /// A message. From memory::leastMappable bytes on they go in a block that other processes can map: where
  /// they lie, if they are in one that is frozen and `shares` says so, else in a copy. `cost` is for cost().
  /// Throws std::runtime_error where no block can be made.
  [[nodiscard]] static std::shared_ptr<OutgoingRecord> message(const Stamp& stamp, const std::uint8_t* data,
                                                               std::uint64_t size,
                                                               const datastreaming::AttributeMap& attributes,
                                                               bool shares, std::uint64_t cost);

  [[nodiscard]] std::span<const std::uint8_t> bytes() const { return {_bytes.get(), _size}; }
  /// The memory that it takes, as it was told for a message.
  [[nodiscard]] std::uint64_t cost() const { return _cost; }
  [[nodiscard]] bool isMessage() const { return _isMessage; }
  [[nodiscard]] bool bringsDescriptor() const { return _descriptor >= 0; }
  [[nodiscard]] int descriptor() const { return _descriptor; }
  /// Somebody may still be reading the block when nobody here holds it any more.
  void leaveBlock() const { memory::keepFromReuse(_block); }

 private:
  void make(std::size_t size);
  [[nodiscard]] std::uint64_t layIntoBlock(const std::uint8_t* data, std::uint64_t size,
                                           const datastreaming::AttributeMap* attributes,
                                           std::uint64_t attributesSize, bool shares);

  std::unique_ptr<std::uint8_t[]> _bytes;
  std::size_t _size = 0;
  std::uint64_t _cost = 128;
  bool _isMessage = false;
  int _descriptor = -1;
  memory::SharedBytes _block;  // keeps the descriptor open
};

/// Records as they come in. What they refer to lies in the packet.
struct HelloRecord {};
struct MessageRecord {
  Stamp stamp;
  bool inBlock = false;                           ///< the bytes lie in the block of the next descriptor
  std::uint64_t offset = 0;                       ///< of what lies there
  std::span<const std::uint8_t> attributes = {};  ///< of a block that begins with them: empty
  std::uint64_t attributesInBlock = 0;            ///< how many bytes of them come before the message's there
  std::span<const std::uint8_t> data = {};        ///< unless they lie in a block
  std::uint64_t size = 0;                         ///< of the message's bytes, wherever they lie
};
using IncomingRecord = std::variant<HelloRecord, ProducerEvent, MessageRecord>;

/// Takes the next record off the packet; nothing if that is none.
[[nodiscard]] std::optional<IncomingRecord> takeRecord(std::span<const std::uint8_t>& packet);

/// Reads attributes; nothing if these are none.
[[nodiscard]] std::optional<datastreaming::AttributeMap> readAttributes(std::span<const std::uint8_t> bytes);

}  // namespace kestrel::streams
