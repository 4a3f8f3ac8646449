#pragma once

#include <string>
#include <string_view>

#include "kestreldata/ElementTraits.hpp"
#include "kestreldata/Export.hpp"

namespace kestreldata {

/// 7-bit text as UTF-16. Throws NonAsciiCharInInputDataException for any byte of 128 or more.
[[nodiscard]] KESTRELDATA_EXPORT String asciiToUtf16(std::string_view text);

/// UTF-16 text as 7-bit text. Throws NonAsciiCharInInputDataException for any code unit of 128 or more.
[[nodiscard]] KESTRELDATA_EXPORT std::string utf16ToAscii(std::u16string_view text);

/// A string element as 7-bit text. Throws MissingStringException for a missing string and
/// NonAsciiCharInInputDataException for any code unit of 128 or more.
[[nodiscard]] KESTRELDATA_EXPORT std::string castToString(const optional<String>& element);

}  // namespace kestreldata
