#include "kestreldata/Text.hpp"

#include <algorithm>
#include <string>

#include "Ascii.hpp"
#include "kestreldata/Exceptions.hpp"

namespace kestreldata {

String asciiToUtf16(std::string_view text) {
  detail::requireAscii(text);
  return {text.begin(), text.end()};
}

std::string utf16ToAscii(std::u16string_view text) {
  detail::requireAscii(text);
  std::string ascii(text.size(), '\0');
  std::ranges::transform(text, ascii.begin(), [](char16_t c) { return static_cast<char>(c); });
  return ascii;
}

std::string castToString(const optional<String>& element) {
  if (!element) throw MissingStringException();
  return utf16ToAscii(*element);
}

}  // namespace kestreldata
