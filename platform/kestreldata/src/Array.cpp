#include "kestreldata/Array.hpp"

#include <cstddef>
#include <cstring>
#include <variant>

#include "BodyAccess.hpp"

namespace kestreldata {

namespace {

template <typename Real>
bool sameReals(const detail::Bytes& left, const detail::Bytes& right) {
  const auto* a = reinterpret_cast<const Real*>(left.data());
  const auto* b = reinterpret_cast<const Real*>(right.data());
  for (std::size_t i = 0; i < left.size() / sizeof(Real); ++i)
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): a NaN is the same as one with the same bits
    if (a[i] != b[i] && std::memcmp(&a[i], &b[i], sizeof(Real)) != 0) return false;
  return true;
}

bool sameContent(const detail::Body& left, const detail::Body& right) {
  if (left.content == right.content) return true;
  const auto* a = std::get_if<detail::Bytes>(&left.content);
  const auto* b = std::get_if<detail::Bytes>(&right.content);
  // A complex element is its two parts, one after the other.
  switch (left.type) {
    case ArrayType::DOUBLE:
    case ArrayType::COMPLEX_DOUBLE:
      return sameReals<double>(*a, *b);
    case ArrayType::SINGLE:
    case ArrayType::COMPLEX_SINGLE:
      return sameReals<float>(*a, *b);
    default:
      return false;
  }
}

}  // namespace

ArrayType Array::getType() const noexcept {
  return body() != nullptr ? body()->type : ArrayType::DOUBLE;
}

ArrayDimensions Array::getDimensions() const {
  return body() != nullptr ? body()->dimensions.toVector() : ArrayDimensions{0, 0};
}

std::size_t Array::getNumberOfElements() const noexcept {
  return body() != nullptr ? body()->elements : 0;
}

bool operator==(const Array& left, const Array& right) {
  if (left.body() == right.body()) return true;
  if (left.getType() != right.getType() || left.getDimensions() != right.getDimensions()) return false;
  return left.isEmpty() || sameContent(*left.body(), *right.body());
}

}  // namespace kestreldata
