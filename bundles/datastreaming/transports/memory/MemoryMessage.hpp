#pragma once

#include <kestrel/datastreaming/Types.hpp>
#include <kestrel/memory/Buffer.hpp>
#include <utility>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// One message within the process; its consumers share it, and nobody changes it once it is queued. Its bytes
/// are a copy, or shared with the sender, who does not write to them any more.
class MemoryMessage {
 public:
  /// Copies the bytes unless there is an owner who keeps them. Throws std::bad_alloc.
  MemoryMessage(const Stamp& itsStamp, const std::uint8_t* data, std::size_t size,
                const datastreaming::AttributeMap& itsAttributes, memory::SharedBytes owner = nullptr)
      : stamp(itsStamp), attributes(itsAttributes), _size(size), _data(data), _owner(std::move(owner)) {
    if (_owner) return;
    _copy.append(data, size);
    _copy.freeze();
    _data = _copy.data();
  }

  const Stamp stamp;
  TimePoint arrival;  ///< when the stream took it over
  const datastreaming::AttributeMap attributes;

  [[nodiscard]] const std::uint8_t* data() const { return _data; }
  [[nodiscard]] std::size_t size() const { return _size; }

 private:
  const std::size_t _size;
  const std::uint8_t* _data;
  const memory::SharedBytes _owner;
  memory::Buffer _copy;
};

}  // namespace kestrel::streams
