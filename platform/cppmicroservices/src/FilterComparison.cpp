#include "FilterComparison.hpp"

#include <algorithm>
#include <charconv>
#include <limits>
#include <list>
#include <optional>
#include <string_view>
#include <type_traits>

#include "TextCase.hpp"

namespace cppmicroservices::detail {

namespace {

using Kind = FilterNode::Kind;
using Pieces = std::vector<std::string>;

constexpr std::string_view blanks = " \t\r\n";

bool matchesPattern(std::string_view text, const Pieces& pieces) {
  const std::string_view first = pieces.front();
  const std::string_view last = pieces.back();
  if (text.size() < first.size() + last.size() || !text.starts_with(first) || !text.ends_with(last)) {
    return false;
  }
  auto middle = text.substr(first.size(), text.size() - first.size() - last.size());
  return std::all_of(pieces.begin() + 1, pieces.end() - 1, [&middle](const std::string& piece) {
    const auto at = middle.find(piece);
    if (at == std::string_view::npos) {
      return false;
    }
    middle.remove_prefix(at + piece.size());
    return true;
  });
}

std::string approximated(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
      result += lowered(c);
    }
  }
  return result;
}

template <class T>
bool ordered(Kind kind, const T& property, const T& value) {
  switch (kind) {
    case Kind::AtLeast:
      return property >= value;
    case Kind::AtMost:
      return property <= value;
    default:
      return property == value;
  }
}

/// The value as it was written, where wildcards have no meaning.
std::string literal(const Pieces& pieces) {
  std::string text = pieces.front();
  for (auto piece = pieces.begin() + 1; piece != pieces.end(); ++piece) {
    text += '*' + *piece;
  }
  return text;
}

bool compareText(Kind kind, const std::string& property, const Pieces& pieces) {
  if (kind == Kind::Equal) {
    return pieces.size() > 1 ? matchesPattern(property, pieces) : property == pieces.front();
  }
  if (kind == Kind::Approximate) {
    return approximated(property) == approximated(literal(pieces));
  }
  return ordered(kind, property, literal(pieces));
}

bool compareTruth(Kind kind, bool property, const Pieces& pieces) {
  return pieces.size() == 1 && (kind == Kind::Equal || kind == Kind::Approximate) &&
         equalIgnoringCase(pieces.front(), property ? "true" : "false");
}

/// Nothing for a text that is not a number as a whole, blanks around it and a plus sign apart.
template <class T>
std::optional<T> numberFrom(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  text.remove_suffix(text.size() - (text.find_last_not_of(blanks) + 1));
  if (text.starts_with('+') && !text.starts_with("+-")) {
    text.remove_prefix(1);
  }
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// Holds every integer of 64 bits exactly, so that a value may be a fraction or out of the property's range.
using Wide = long double;
static_assert(std::numeric_limits<Wide>::digits >= 64);

/// Numbers are compared by their values. CppMicroServices turns the text into the property's type first, so
/// that 5 equals "5.1" and "5x" there, and no unsigned number of 64 bits is below its largest.
template <class T>
bool compareNumber(Kind kind, T property, const Pieces& pieces) {
  if (pieces.size() > 1) {
    return false;
  }
  if constexpr (std::is_floating_point_v<T>) {  // 0.1 as a float is meant by "0.1", though it is another
                                                // number
    if (const auto value = numberFrom<T>(pieces.front())) {
      return ordered(kind, property, *value);
    }
  }
  const auto value = numberFrom<Wide>(pieces.front());
  return value && ordered(kind, static_cast<Wide>(property), *value);
}

/// Nothing if the property holds none of the types.
template <class... Numbers>
std::optional<bool> compareIfNumber(Kind kind, const Any& property, const Pieces& pieces) {
  std::optional<bool> result;
  const auto tryOne = [&]<class T>(const T* number) {
    if (number != nullptr) {
      result = compareNumber(kind, *number, pieces);
    }
    return number != nullptr;
  };
  static_cast<void>((tryOne(any_cast<Numbers>(&property)) || ...));
  return result;
}

template <class List>
bool compareElements(Kind kind, const List& elements, const Pieces& pieces) {
  return std::ranges::any_of(
      elements, [&](const auto& element) { return compareProperty(kind, Any(element), pieces); });
}

}  // namespace

bool compareProperty(Kind kind, const Any& property, const Pieces& pieces) {
  if (const auto* text = any_cast<std::string>(&property)) {
    return compareText(kind, *text, pieces);
  }
  if (const auto* character = any_cast<char>(&property)) {
    return compareText(kind, std::string(1, *character), pieces);
  }
  if (const auto* texts = any_cast<std::vector<std::string>>(&property)) {
    return compareElements(kind, *texts, pieces);
  }
  if (const auto* texts = any_cast<std::list<std::string>>(&property)) {
    return compareElements(kind, *texts, pieces);
  }
  if (const auto* values = any_cast<std::vector<Any>>(&property)) {
    return compareElements(kind, *values, pieces);
  }
  if (const auto* truth = any_cast<bool>(&property)) {
    return compareTruth(kind, *truth, pieces);
  }
  return compareIfNumber<unsigned char, short, unsigned short, int, unsigned, long, unsigned long, long long,
                         unsigned long long, float, double>(kind, property, pieces)
      .value_or(false);
}

}  // namespace cppmicroservices::detail
