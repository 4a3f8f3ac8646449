#include "ArrayText.hpp"

#include <kestreldata/kestreldata.hpp>

#include <cctype>
#include <limits>

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::ArrayType;

namespace {

template <class Range, class Text>
std::string listOf(const Range& values, Text text) {
  std::string list;
  for (const auto& value : values) list += (list.empty() ? "" : ", ") + text(value);
  return list;
}

std::string typeOf(const Array& array) {
  std::string name(toString(array.getType()));
  for (char& letter : name) letter = static_cast<char>(std::tolower(letter));
  return name;
}

std::string sizesOf(const Array& array) {
  std::string text;
  for (const auto size : array.getDimensions()) text += (text.empty() ? "" : "x") + std::to_string(size);
  return text;
}

template <class Number>
std::string numbersOf(const Array& array) {
  return listOf(kestreldata::TypedArray<Number>(array), [](Number value) { return std::to_string(value); });
}

std::string quoted(const kestreldata::String& text) {
  return textOf(std::string(text.begin(), text.end()));
}

std::string stringsOf(const Array& array) {
  const kestreldata::TypedArray<kestreldata::optional<kestreldata::String>> strings(array);
  return listOf(strings, [](const auto& text) { return text ? quoted(*text) : std::string("<missing>"); });
}

std::string contentOf(const Array& array) {
  switch (array.getType()) {
    case ArrayType::CELL:
      return "{" +
             listOf(kestreldata::TypedArray<Array>(array), [](const Array& cell) { return textOf(cell); }) +
             "}";
    case ArrayType::STRING:
      return stringsOf(array);
    case ArrayType::CHAR:
      return quoted(kestreldata::CharArray(array).toUTF16());
    case ArrayType::UINT8:
      return numbersOf<std::uint8_t>(array);
    case ArrayType::UINT64:
      return numbersOf<std::uint64_t>(array);
    case ArrayType::DOUBLE:
      return numbersOf<double>(array);
    default:
      return "?";
  }
}

}  // namespace

std::string textOf(const Array& array) {
  const auto content = contentOf(array);
  return typeOf(array) + " " + sizesOf(array) + (content.empty() ? "" : " ") + content;
}

std::string textOf(const std::string& text) {
  return '"' + text + '"';
}

std::string textOf(std::uint64_t number) {
  return number == std::numeric_limits<std::uint64_t>::max() ? "default" : std::to_string(number);
}

std::string textOf(const std::vector<std::uint64_t>& numbers) {
  return "[" + listOf(numbers, [](std::uint64_t number) { return std::to_string(number); }) + "]";
}

std::string textOf(RemoteAsyncIOError error) {
  return std::to_string(static_cast<int>(error));
}

}  // namespace remote_connectivity::asyncio::util
