#include "kestreldata/ArrayFactory.hpp"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Ascii.hpp"
#include "BodyAccess.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata {

namespace {

using detail::BodyAccess;
using detail::Dimensions;
using detail::requireAscii;

std::size_t requiredElements(ArrayType type, const Dimensions& dimensions) {
  const std::size_t elementSize = detail::storedElementSize(type);
  if (elementSize == 0)
    throw InvalidArrayTypeException("Expected the number of an array type, 1 to 24, got " +
                                    std::to_string(static_cast<int>(type)));
  const auto elements = detail::elementCount(dimensions, elementSize);
  if (!elements)
    throw InvalidDimensionsException("Expected dimensions whose elements memory can hold, got " +
                                     detail::toString(dimensions));
  return *elements;
}

detail::Bytes copiedBytes(ArrayType type, const void* data, std::size_t byteCount) {
  if (byteCount == 0) return {};
  detail::Bytes bytes(data, byteCount);
  // A bool with any other representation than 0 and 1 must never be read.
  if (type == ArrayType::LOGICAL)
    std::transform(bytes.begin(), bytes.end(), bytes.data(),
                   [](char byte) { return byte == 0 ? '\0' : '\1'; });
  return bytes;
}

template <typename Character>
Array makeRow(std::basic_string_view<Character> characters) {
  detail::Bytes bytes(characters.size() * sizeof(char16_t));
  auto* out = reinterpret_cast<char16_t*>(bytes.data());
  std::ranges::transform(characters, out,
                         [](Character character) { return static_cast<char16_t>(character); });
  return BodyAccess::make(ArrayType::CHAR, {1, characters.size(), {}}, characters.size(), std::move(bytes));
}

}  // namespace

ArrayFactory::~ArrayFactory() = default;
standalone::ArrayFactory::~ArrayFactory() = default;

Array ArrayFactory::createArray(ArrayType type, const ArrayDimensions& sizes) const {
  Dimensions dimensions = Dimensions::from(sizes);
  const std::size_t elements = requiredElements(type, dimensions);
  if (type == ArrayType::STRING)
    return BodyAccess::make(type, std::move(dimensions), elements, detail::Strings(elements, String()));
  if (type == ArrayType::CELL)
    return BodyAccess::make(type, std::move(dimensions), elements, detail::Cells(elements));
  detail::Bytes zeros(elements * fixedElementSize(type));
  std::fill_n(zeros.data(), zeros.size(), '\0');
  return BodyAccess::make(type, std::move(dimensions), elements, std::move(zeros));
}

Array ArrayFactory::createArrayWithData(ArrayType type, const ArrayDimensions& sizes, const void* data,
                                        std::size_t byteCount) const {
  Dimensions dimensions = Dimensions::from(sizes);
  const std::size_t elements = requiredElements(type, dimensions);
  const std::size_t elementSize = fixedElementSize(type);
  if (elementSize == 0)
    throw InvalidArrayTypeException("Expected a type whose elements have a fixed size, got " +
                                    std::string(toString(type)));
  if (byteCount != elements * elementSize)
    throw InvalidElementCountException("Expected " + std::to_string(elements * elementSize) +
                                       " bytes for a " + detail::toString(dimensions) + " array of type " +
                                       std::string(toString(type)) + ", got " + std::to_string(byteCount));
  return BodyAccess::make(type, std::move(dimensions), elements, copiedBytes(type, data, byteCount));
}

TypedArray<optional<String>> ArrayFactory::createScalar(std::string_view text) const {
  return createScalar(asciiToUtf16(text));
}

TypedArray<optional<String>> ArrayFactory::createScalar(String text) const {
  detail::Strings strings;
  strings.emplace_back(std::move(text));
  return BodyAccess::make(ArrayType::STRING, {1, 1, {}}, 1, std::move(strings));
}

CharArray ArrayFactory::createCharArray(std::string_view text) const {
  requireAscii(text);
  return makeRow(text);
}

CharArray ArrayFactory::createCharArray(std::u16string_view text) const {
  return makeRow(text);
}

Array ArrayFactory::createEmptyArray() const {
  return {};
}

TypedArray<Array> ArrayFactory::createCellArray(const ArrayDimensions& dimensions) const {
  return createArray(ArrayType::CELL, dimensions);
}

TypedArray<Array> ArrayFactory::createCellArray(const ArrayDimensions& sizes,
                                                std::vector<Array> elements) const {
  Dimensions dimensions = Dimensions::from(sizes);
  const std::size_t wanted = requiredElements(ArrayType::CELL, dimensions);
  requireCount(wanted, elements.size());
  return BodyAccess::make(ArrayType::CELL, std::move(dimensions), wanted, std::move(elements));
}

void ArrayFactory::requireCount(std::size_t wanted, std::size_t given) {
  if (wanted != given)
    throw InvalidElementCountException("Expected " + std::to_string(wanted) +
                                       " elements to fill the dimensions, got " + std::to_string(given));
}

}  // namespace kestreldata
