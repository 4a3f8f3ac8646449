#include "transports/ipc/AnswersTogether.hpp"

#include <algorithm>

#include "transports/ipc/ConsumerLine.hpp"

namespace kestrel::streams {

thread_local AnswersTogether* AnswersTogether::_current = nullptr;

AnswersTogether::~AnswersTogether() {
  _current = nullptr;
  for (const auto& held : _lines) {
    if (const auto line = held.lock()) line->pump();
  }
}

bool AnswersTogether::holdBack(const std::weak_ptr<ConsumerLine>& line) {
  if (_current == nullptr) return false;
  const auto same = [&](const auto& other) { return !other.owner_before(line) && !line.owner_before(other); };
  auto& lines = _current->_lines;
  if (std::ranges::none_of(lines, same)) lines.push_back(line);
  return true;
}

}  // namespace kestrel::streams
