#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "StructureCost.hpp"
#include "kestreldata/EncodedArray.hpp"
#include "kestreldata/detail/Body.hpp"

namespace kestreldata {

/// Works out how long each message of an encoding is and where large payloads begin in it.
class EncodedArray::Layout {
 public:
  /// Throws SerializationException for an array that is nested too deep or too large to encode.
  explicit Layout(const Array& array);

  [[nodiscard]] std::vector<Node> takeNodes() noexcept { return std::move(_nodes); }
  [[nodiscard]] std::size_t size() const noexcept { return _nodes.front().size; }

 private:
  void examine(const Array& array, std::size_t depth);
  void count(std::size_t bytes);
  std::size_t measure(const Array& array);
  std::size_t place(const Array& array, std::size_t start);

  std::vector<Node> _nodes;
  std::size_t _cursor = 0;   // the node of the array that comes next
  std::size_t _counted = 0;  // bytes that will be needed at least
  detail::StructureCost _structure;
  bool _hasFillers = false;
};

namespace detail {

/// Bytes of the numbers of a packed field.
[[nodiscard]] std::size_t packedSize(const std::vector<std::size_t>& numbers) noexcept;
[[nodiscard]] std::size_t packedLengthsSize(const Strings& strings) noexcept;

/// Bytes of the text of all strings together.
[[nodiscard]] std::size_t textSize(const Strings& strings) noexcept;

}  // namespace detail

}  // namespace kestreldata
