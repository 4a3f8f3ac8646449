#include "transports/shared/SpareBuffers.hpp"

#include <new>
#include <utility>

namespace kestrel::streams {

SpareBuffers& SpareBuffers::shared() {
  static auto* const buffers = new SpareBuffers;  // threads may still join payloads while the process ends
  return *buffers;
}

std::shared_ptr<PayloadBuffer> SpareBuffers::take() {
  auto buffer = std::make_unique<PayloadBuffer>();
  {
    const std::lock_guard lock(_mutex);
    if (!_kept.empty()) {
      *buffer = std::move(_kept.back());
      _kept.pop_back();
      _bytes -= buffer->capacity();
    }
  }
  return {buffer.release(), [this](PayloadBuffer* used) {
            keep(std::move(*used));
            delete used;
          }};
}

void SpareBuffers::keep(PayloadBuffer buffer) noexcept {
  buffer.clear();
  const std::lock_guard lock(_mutex);
  if (buffer.capacity() > mostKept - _bytes) return;
  try {
    const std::size_t capacity = buffer.capacity();
    _kept.push_back(std::move(buffer));
    _bytes += capacity;
  } catch (const std::bad_alloc&) {  // then it is not kept
  }
}

}  // namespace kestrel::streams
