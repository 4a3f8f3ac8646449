#pragma once

#include <memory>
#include <utility>
#include <vector>

namespace kestrel::streams {

class ConsumerLine;

/// While it exists, what the calling thread sends is held back for a moment, to go out together when it ends:
/// the answers to all that has come at once. For a delivery thread.
class AnswersTogether {
 public:
  AnswersTogether() { _current = this; }
  /// Writes what was held back.
  ~AnswersTogether();
  AnswersTogether(const AnswersTogether&) = delete;
  AnswersTogether& operator=(const AnswersTogether&) = delete;

  /// While it exists, nothing that the calling thread sends is held back.
  class Interrupted {
   public:
    Interrupted() : _former(std::exchange(_current, nullptr)) {}
    ~Interrupted() { _current = _former; }
    Interrupted(const Interrupted&) = delete;
    Interrupted& operator=(const Interrupted&) = delete;

   private:
    AnswersTogether* const _former;
  };

  /// Whether the calling thread has such a moment; then the line is written to at its end.
  [[nodiscard]] static bool holdBack(const std::weak_ptr<ConsumerLine>& line);

 private:
  static thread_local AnswersTogether* _current;
  std::vector<std::weak_ptr<ConsumerLine>> _lines;  // which may go before
};

}  // namespace kestrel::streams
