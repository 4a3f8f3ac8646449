#include "FilterComparison.hpp"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "TextCase.hpp"

namespace cppmicroservices::detail {

namespace {

using Kind = FilterNode::Kind;
using Pieces = std::vector<std::string>;

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

bool compareText(Kind kind, const std::string& property, const Pieces& pieces) {
  if (kind == Kind::Approximate) {
    Pieces relaxed;
    std::ranges::transform(pieces, std::back_inserter(relaxed), approximated);
    return compareText(Kind::Equal, approximated(property), relaxed);
  }
  if (pieces.size() > 1) {
    return kind == Kind::Equal && matchesPattern(property, pieces);
  }
  return ordered(kind, property, pieces.front());
}

template <class T>
bool compareNumber(Kind kind, T property, const Pieces& pieces) {
  const auto& text = pieces.front();
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return pieces.size() == 1 && error == std::errc() && end == text.data() + text.size() &&
         ordered(kind, property, value);
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

template <class T>
bool compareElements(Kind kind, const std::vector<T>& elements, const Pieces& pieces) {
  return std::ranges::any_of(elements,
                             [&](const T& element) { return compareProperty(kind, Any(element), pieces); });
}

}  // namespace

bool compareProperty(Kind kind, const Any& property, const Pieces& pieces) {
  if (const auto* text = any_cast<std::string>(&property)) {
    return compareText(kind, *text, pieces);
  }
  if (const auto* texts = any_cast<std::vector<std::string>>(&property)) {
    return compareElements(kind, *texts, pieces);
  }
  if (const auto* values = any_cast<std::vector<Any>>(&property)) {
    return compareElements(kind, *values, pieces);
  }
  if (const auto* truth = any_cast<bool>(&property)) {
    return pieces.size() == 1 && kind == Kind::Equal &&
           equalIgnoringCase(pieces.front(), *truth ? "true" : "false");
  }
  return compareIfNumber<short, unsigned short, int, unsigned, long, unsigned long, long long,
                         unsigned long long, float, double>(kind, property, pieces)
      .value_or(false);
}

}  // namespace cppmicroservices::detail
