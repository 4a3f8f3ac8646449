#include "transports/ipc/AnswersTogether.hpp"

#include <algorithm>

#include "transports/ipc/ConsumerLine.hpp"

namespace kestrel::streams {

thread_local AnswersTogether* AnswersTogether::_current = nullptr;

AnswersTogether::~AnswersTogether() {
  _current = nullptr;
  for (const auto& line : _lines) line->pump();
}

bool AnswersTogether::holdBack(const std::weak_ptr<ConsumerLine>& line) {
  if (_current == nullptr) return false;
  auto held = line.lock();
  if (!held) return false;
  auto& lines = _current->_lines;
  if (std::ranges::find(lines, held) == lines.end()) lines.push_back(std::move(held));
  return true;
}

}  // namespace kestrel::streams
