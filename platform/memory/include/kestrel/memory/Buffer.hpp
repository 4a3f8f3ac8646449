#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kestrel/export/Export.hpp"

namespace kestrel::memory {

/// Who holds bytes that nobody writes to any more; get() is the first of them.
using SharedBytes = std::shared_ptr<const std::uint8_t>;

/// Bytes that grow at their end, in blocks of allocate(). Once they are frozen they may be shared by whoever
/// has a pointer into them. One thread at a time; frozen, any number may read.
class KESTREL_EXPORT Buffer {
 public:
  Buffer() noexcept = default;
  /// That many bytes, of undefined content. Throws std::bad_alloc.
  explicit Buffer(std::size_t size);
  /// The same, in a block of its own that other processes can map for reading, of which there are 512 at most
  /// in a process. Throws std::bad_alloc.
  [[nodiscard]] static Buffer mappable(std::size_t size);
  /// The same if it is large and some transport has asked for that with makeSendingMappable(), else as any.
  [[nodiscard]] static Buffer toSend(std::size_t size);
  Buffer(Buffer&& other) noexcept;
  Buffer& operator=(Buffer&& other) noexcept;
  ~Buffer();

  /// Makes room for that many bytes in all. Throws std::bad_alloc, and changes nothing then.
  void reserve(std::size_t capacity);
  /// Adds a copy. The room doubles at least. Throws std::bad_alloc, and changes nothing then.
  void append(const void* data, std::size_t size);

  /// Lets ownerOf() find the bytes, if they are `leastKept` or more and there is memory for that. They must
  /// not change from now on.
  void freeze() noexcept;

  [[nodiscard]] std::uint8_t* data() noexcept { return _data; }
  [[nodiscard]] const std::uint8_t* data() const noexcept { return _data; }
  [[nodiscard]] std::size_t size() const noexcept { return _size; }
  [[nodiscard]] std::size_t capacity() const noexcept { return _capacity; }

 private:
  std::uint8_t* _data = nullptr;
  std::size_t _size = 0;
  std::size_t _capacity = 0;
  int _descriptor = -1;
  SharedBytes _shared;  // holds the memory once it is frozen
};

/// What ownerOf() finds.
struct Frozen {
  SharedBytes owner;     ///< whose copies keep the bytes, as they are
  std::size_t size = 0;  ///< how many bytes it keeps in all
  /// Where other processes can map them, beginning with the first byte of all; -1: they cannot. Open as long
  /// as the owner is held.
  int descriptor = -1;
};

/// Another process may still read the frozen bytes that are held so: their memory is not used again when they
/// are let go of. Safe from any thread.
KESTREL_EXPORT void keepFromReuse(const SharedBytes& owner) noexcept;

/// From this size on the bytes of a message go to another process by its mapping them.
inline constexpr std::size_t leastMappable = std::size_t{96} << 10;

/// From now on Buffer::toSend() gives what other processes can map.
KESTREL_EXPORT void makeSendingMappable() noexcept;

/// Who holds these bytes, if all of them lie in one frozen Buffer. Otherwise empty, and a copy of the bytes
/// must be made. Safe from any thread.
[[nodiscard]] KESTREL_EXPORT Frozen ownerOf(const void* data, std::size_t size) noexcept;

}  // namespace kestrel::memory
