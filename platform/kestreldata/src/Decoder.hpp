#pragma once

#include <cstddef>
#include <memory>

#include "Encoding.hpp"

namespace kestreldata::detail {

/// Keeps the bytes of a message where they are. An array that takes up half of them or more may hold on to
/// them instead of copying its elements.
struct Lender {
  std::shared_ptr<const void> owner;  ///< empty if they will not stay
  std::size_t bytes = 0;
};

/// Builds the array that a message stands for. See SerializationContext::convertFromProtobuf.
[[nodiscard]] Array decode(const Encoding& message, const Lender& lender);

}  // namespace kestreldata::detail
