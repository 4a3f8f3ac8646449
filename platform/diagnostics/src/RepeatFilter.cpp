#include "RepeatFilter.hpp"

#include <algorithm>
#include <utility>

namespace kestrel::diagnostics {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// The text with one digit in the place of each number that may differ.
std::string shapeOf(std::string_view text) {
  std::string shape;
  shape.reserve(text.size());
  char before = ' ';
  for (std::size_t i = 0; i < text.size(); before = text[i++]) {
    if ((before == ' ' || before == '(') && isDigit(text[i])) {
      while (i + 1 < text.size() && isDigit(text[i + 1])) ++i;
      shape += '0';
    } else {
      shape += text[i];
    }
  }
  return shape;
}

}  // namespace

bool RepeatFilter::admits(const Record& record, Clock::time_point now, std::vector<Repeated>& ended) {
  while (!_entries.empty() && now - _entries.front().since >= period) forgetOldest(ended);
  if (record.text.size() > longestText) return true;
  auto shape = shapeOf(record.text);
  const auto known = std::ranges::find_if(_entries, [&](const Entry& entry) {
    return entry.shape == shape && entry.repeated.severity == record.severity &&
           entry.repeated.channel == record.channel;
  });
  if (known != _entries.end()) {
    known->repeated.text = record.text;
    ++known->repeated.times;
    return false;
  }
  if (_entries.size() == mostTexts) forgetOldest(ended);
  _entries.push_back({std::move(shape), now, {std::string(record.channel), record.severity, {}, 0}});
  return true;
}

std::vector<RepeatFilter::Repeated> RepeatFilter::takeAll() {
  std::vector<Repeated> ended;
  while (!_entries.empty()) forgetOldest(ended);
  return ended;
}

void RepeatFilter::forgetOldest(std::vector<Repeated>& ended) {
  auto& oldest = _entries.front().repeated;
  if (oldest.times > 0) ended.push_back(std::move(oldest));
  _entries.pop_front();
}

}  // namespace kestrel::diagnostics
