#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace kestrel::streams {

/// What became of a message that a writer was given.
struct Written {
  enum class Kind {
    taken,    ///< it goes out with the next write
    refused,  ///< for what it is
    lost,     ///< the connection was lost; another one may take it
  };
  Kind kind = Kind::taken;
  std::string why = {};  ///< it was refused
};

/// One connection as what goes out over it sees it, from its making to its loss; it never comes back. Safe
/// from any thread.
class Writer {
 public:
  /// A message in the form that the connection takes.
  using Message = std::shared_ptr<void>;

  virtual ~Writer() = default;

  /// Tells it from all other connections of the process; never 0, and later ones have higher numbers.
  [[nodiscard]] virtual std::uint64_t number() const = 0;
  /// Whether it has not been lost, as far as is known.
  [[nodiscard]] virtual bool usable() const = 0;
  /// Appends a message to what is to be written, without waiting. For one thread at a time, as flush().
  [[nodiscard]] virtual Written append(const Message& message) = 0;
  /// How many bytes have been appended and not gone to the system yet.
  [[nodiscard]] virtual int buffered() const = 0;
  /// Writes them as far as the socket takes them. Returns whether nothing is left for the loop to write.
  virtual bool flush() = 0;
  /// Messages that follow each other sooner, in the mean, are left to the loop, which writes them together
  /// when it has woken up. That takes about 20 µs; less where a write costs little.
  [[nodiscard]] virtual std::chrono::nanoseconds shortGap() const { return std::chrono::microseconds(20); }
  /// Whether only the loop may write.
  [[nodiscard]] virtual bool loopWrites() const { return false; }
  /// Has the loop write soon, and ask for more.
  virtual void wake() = 0;
  /// The same within 200 µs; cheap when it was called before within that time.
  virtual void wakeLater() = 0;
};

}  // namespace kestrel::streams
