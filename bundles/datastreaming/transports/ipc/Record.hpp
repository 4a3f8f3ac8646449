#pragma once

#include <cstddef>
#include <cstdint>
#include <kestrel/datastreaming/Types.hpp>
#include <kestrel/memory/Buffer.hpp>
#include <memory>
#include <optional>
#include <span>
#include <variant>

#include "kestrel/callbacks/ThreadSafety.hpp"
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

/// A record on its way out, the same for all consumers. Safe from any thread.
class OutgoingRecord {
 public:
  /// The first one of each connection. It goes with the descriptor of the page in which the consumer keeps
  /// its accounts.
  [[nodiscard]] static std::shared_ptr<OutgoingRecord> hello();
  [[nodiscard]] static std::shared_ptr<OutgoingRecord> event(const ProducerEvent& event);
  /// A message. From memory::leastMappable bytes on they go in a block. Until then they are kept where they
  /// lie, if that is in a frozen Buffer and `shares` says so, else in a copy. `cost` is for cost(). Throws
  /// std::runtime_error where there are too many attributes.
  [[nodiscard]] static std::shared_ptr<OutgoingRecord> message(const Stamp& stamp, const std::uint8_t* data,
                                                               std::uint64_t size,
                                                               const datastreaming::AttributeMap& attributes,
                                                               bool shares, std::uint64_t cost);

  [[nodiscard]] std::span<const std::uint8_t> bytes() const { return {_bytes.get(), _size}; }
  /// The memory that it takes, as it was told for a message.
  [[nodiscard]] std::uint64_t cost() const { return _cost; }
  [[nodiscard]] bool isMessage() const { return _isMessage; }
  [[nodiscard]] bool isHello() const { return _isHello; }

  /// Whether it goes with the descriptor of a block of memory that other processes can map.
  [[nodiscard]] bool goesInBlock() const { return !_content.empty(); }
  /// Whether that must be made first, and be copied into.
  [[nodiscard]] bool needsCopy() const { return goesInBlock() && _kept.descriptor < 0; }
  /// The block, for as long as it is held. Without an owner if it needs a copy and there is no memory for
  /// that now, or not for somebody who has so many copies already.
  [[nodiscard]] memory::Frozen block(std::size_t copies);

 private:
  void make(std::size_t size);
  void keep(const std::uint8_t* data, std::uint64_t size, const datastreaming::AttributeMap* attributes,
            std::uint64_t attributesSize, bool shares);

  std::unique_ptr<std::uint8_t[]> _bytes;
  std::size_t _size = 0;
  std::uint64_t _cost = 128;
  bool _isMessage = false;
  bool _isHello = false;
  memory::Frozen _kept;                    // what follows lies there
  std::span<const std::uint8_t> _content;  // of the block

  callbacks::Mutex _mutex;
  std::weak_ptr<const std::uint8_t> _copy KESTREL_GUARDED_BY(_mutex);  // while anybody holds it
  int _copyDescriptor KESTREL_GUARDED_BY(_mutex) = -1;
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
