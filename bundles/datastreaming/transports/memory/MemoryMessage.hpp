#pragma once

#include <kestrel/datastreaming/Types.hpp>
#include <kestrel/memory/Blocks.hpp>
#include <kestrel/memory/Buffer.hpp>

#include "sequencing/Frame.hpp"

namespace kestrel::streams {

/// One message within the process; its consumers share it, and nobody changes it once it is queued. Its bytes
/// are a copy, unless they lie where nobody writes to them any more: then they are shared with the sender.
class MemoryMessage {
 public:
  /// Throws std::bad_alloc.
  MemoryMessage(const Stamp& itsStamp, const std::uint8_t* data, std::size_t size,
                const datastreaming::AttributeMap& itsAttributes)
      : stamp(itsStamp), attributes(itsAttributes), _size(size) {
    if (size >= memory::leastKept || stamp.chunked) _owner = memory::ownerOf(data, size);
    if (_owner) {
      _data = data;
    } else {
      _copy.append(data, size);
      _copy.freeze();
      _data = _copy.data();
    }
  }

  const Stamp stamp;
  TimePoint arrival;  ///< when the stream took it over
  const datastreaming::AttributeMap attributes;

  [[nodiscard]] const std::uint8_t* data() const { return _data; }
  [[nodiscard]] std::size_t size() const { return _size; }

 private:
  const std::size_t _size;
  const std::uint8_t* _data = nullptr;
  memory::SharedBytes _owner;
  memory::Buffer _copy;
};

}  // namespace kestrel::streams
