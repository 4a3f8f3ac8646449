#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "kestreldata/Export.hpp"

namespace kestreldata::detail {

/// Elements of one size, back to back, aligned for every element type. Few of them lie in the object itself,
/// many in memory that is kept for the next array, and those of a message that came in may lie where they
/// arrived, lent by whoever else reads them there. A copy is deep. One thread at a time, as an Array.
class KESTRELDATA_EXPORT Bytes {
 public:
  Bytes() noexcept = default;
  /// That many, of undefined content. Throws std::bad_alloc.
  explicit Bytes(std::size_t size);
  Bytes(const void* data, std::size_t size);
  Bytes(const Bytes& other) : Bytes(other.data(), other.size()) {}
  Bytes(Bytes&& other) noexcept;
  Bytes& operator=(Bytes other) noexcept;
  ~Bytes();

  /// Some that the lender keeps for as long as it is held, and that nobody writes to. They must be aligned.
  [[nodiscard]] static Bytes lent(std::shared_ptr<const void> lender, const void* data, std::size_t size);
  /// Replaces those that are lent by a copy, which may be written to. Throws std::bad_alloc.
  void own();

  [[nodiscard]] const char* data() const noexcept { return _size <= inPlace ? _place : _data; }
  [[nodiscard]] char* data() noexcept { return _size <= inPlace ? _place : _data; }
  [[nodiscard]] const char* begin() const noexcept { return data(); }
  [[nodiscard]] const char* end() const noexcept { return data() + _size; }
  [[nodiscard]] std::size_t size() const noexcept { return _size; }
  [[nodiscard]] bool empty() const noexcept { return _size == 0; }

  friend KESTRELDATA_EXPORT bool operator==(const Bytes& left, const Bytes& right) noexcept;

 private:
  static constexpr std::size_t inPlace = 16;  // a number, or a complex one

  KESTRELDATA_LOCAL void swap(Bytes& other) noexcept;

  char* _data = nullptr;  // of more than fit in place
  std::size_t _size = 0;
  std::shared_ptr<const void> _lender;  // empty if they are its own
  alignas(16) char _place[inPlace]{};
};

}  // namespace kestreldata::detail
