#pragma once

#include <cstring>
#include <kestrel/datastreaming/Types.hpp>
#include <kestrel/memory/Blocks.hpp>
#include <kestrel/memory/Buffer.hpp>
#include <memory>
#include <new>
#include <utility>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// One message within the process; its consumers share it, and nobody changes it once it is queued. Its bytes
/// are a copy, or shared with the sender, who does not write to them any more.
class MemoryMessage {
 public:
  /// Of bytes that their owner keeps as they are. Throws std::bad_alloc.
  static std::shared_ptr<MemoryMessage> sharing(const Stamp& stamp, const std::uint8_t* data,
                                                std::size_t size,
                                                const datastreaming::AttributeMap& attributes,
                                                memory::SharedBytes owner) {
    return std::make_shared<MemoryMessage>(stamp, data, size, attributes, std::move(owner));
  }

  /// Of a copy. Throws std::bad_alloc.
  static std::shared_ptr<MemoryMessage> copying(const Stamp& stamp, const std::uint8_t* data,
                                                std::size_t size,
                                                const datastreaming::AttributeMap& attributes) {
    if (size < memory::leastKept) {
      std::uint8_t* behind = nullptr;
      auto message = std::allocate_shared<MemoryMessage>(WithBytes<MemoryMessage>(size, &behind), stamp,
                                                         nullptr, size, attributes, nullptr);
      if (size > 0) std::memcpy(behind, data, size);
      message->_data = behind;
      return message;
    }
    memory::Buffer copy;
    copy.append(data, size);
    auto message = std::make_shared<MemoryMessage>(stamp, copy.data(), size, attributes, nullptr);
    copy.freeze();
    message->_copy = std::move(copy);
    return message;
  }

  /// For those above.
  MemoryMessage(const Stamp& itsStamp, const std::uint8_t* data, std::size_t size,
                const datastreaming::AttributeMap& itsAttributes, memory::SharedBytes owner)
      : stamp(itsStamp), attributes(itsAttributes), _size(size), _data(data), _owner(std::move(owner)) {}

  const Stamp stamp;
  TimePoint arrival;  ///< when the stream took it over
  const datastreaming::AttributeMap attributes;

  [[nodiscard]] const std::uint8_t* data() const { return _data; }
  [[nodiscard]] std::size_t size() const { return _size; }

 private:
  /// Allocates an object with so many bytes behind it, for another thread gives both back, and pays for each.
  template <class T>
  struct WithBytes {
    using value_type = T;

    WithBytes(std::size_t count, std::uint8_t** place) : bytes(count), behind(place) {}
    template <class U>
    explicit WithBytes(const WithBytes<U>& other) : bytes(other.bytes), behind(other.behind) {}

    T* allocate(std::size_t count) {
      auto* const memory = static_cast<std::uint8_t*>(::operator new(count * sizeof(T) + bytes));
      *behind = memory + count * sizeof(T);
      return reinterpret_cast<T*>(memory);
    }
    void deallocate(T* object, std::size_t) noexcept { ::operator delete(object); }
    template <class U>
    bool operator==(const WithBytes<U>& other) const {
      return bytes == other.bytes;
    }

    std::size_t bytes;
    std::uint8_t** behind;  // where allocate() says where they are
  };

  const std::size_t _size;
  const std::uint8_t* _data;
  const memory::SharedBytes _owner;
  memory::Buffer _copy;
};

}  // namespace kestrel::streams
