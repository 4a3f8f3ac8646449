#include "sequencing/SpareBuffers.hpp"

#include <algorithm>
#include <new>
#include <utility>

namespace kestrel::streams {

SpareBuffers& SpareBuffers::shared() {
  static auto* const buffers = new SpareBuffers;  // threads may still join payloads while the process ends
  return *buffers;
}

std::shared_ptr<PayloadBuffer> SpareBuffers::make() {
  return {new PayloadBuffer, [this](PayloadBuffer* used) {
            keep(std::move(*used));
            delete used;
          }};
}

void SpareBuffers::prepare(PayloadBuffer& buffer, std::size_t size) {
  if (size <= buffer.capacity() || size < leastKept / 4) return;
  PayloadBuffer spare = take(size);
  if (spare.capacity() == 0) return;
  spare.append(buffer.data(), buffer.size());
  keep(std::exchange(buffer, std::move(spare)));
}

/// One that holds so much, and four times as much at the most.
PayloadBuffer SpareBuffers::take(std::size_t size) {
  const callbacks::MutexLock lock(_mutex);
  const auto found = std::ranges::find_if(_kept, [&](const PayloadBuffer& kept) {
    return kept.capacity() >= size && kept.capacity() / 4 <= size;
  });
  if (found == _kept.end()) return {};
  PayloadBuffer spare = std::move(*found);
  _kept.erase(found);
  _bytes -= spare.capacity();
  return spare;
}

void SpareBuffers::keep(PayloadBuffer buffer) noexcept {
  buffer.clear();
  const callbacks::MutexLock lock(_mutex);
  if (buffer.capacity() < leastKept || buffer.capacity() > mostKept - _bytes) return;
  try {
    const std::size_t capacity = buffer.capacity();
    _kept.push_back(std::move(buffer));
    _bytes += capacity;
  } catch (const std::bad_alloc&) {  // then it is not kept
  }
}

}  // namespace kestrel::streams
