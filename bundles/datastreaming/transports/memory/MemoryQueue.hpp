#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <optional>
#include <vector>

#include "kestrel/callbacks/ShortWait.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/memory/MemoryMessage.hpp"

namespace kestrel::streams {

/// What waits for one consumer, or for the first one to come. push() and stop() are safe from any thread,
/// take() is for one thread.
class MemoryQueue {
 public:
  enum class Kind { message, vanished, abandoned };

  /// A message, or news of a producer.
  struct Entry {
    Kind kind = Kind::message;
    std::uint64_t producer = 0;
    std::shared_ptr<const MemoryMessage> message;  // empty for news
    ByteBudget::Charge charge;
  };

  explicit MemoryQueue(std::uint64_t limit) : _budget(limit) {}

  [[nodiscard]] ByteBudget& budget() { return _budget; }

  void push(std::shared_ptr<const MemoryMessage> message, std::uint64_t cost);
  void pushNews(Kind kind, std::uint64_t producer);

  /// Waits until something is queued, the deadline has come or stop() was called; then moves all that is
  /// queued into the batch, which is cleared first. Returns the time, at which nothing else was queued, or
  /// nothing after stop().
  [[nodiscard]] std::optional<TimePoint> take(std::vector<Entry>& batch, std::optional<TimePoint> deadline);

  /// Drops all that is queued; returns how many messages that was.
  std::uint64_t dropMessages();

  void stop();
  [[nodiscard]] bool stopped() const { return _stopped.load(std::memory_order_relaxed); }

 private:
  void add(Entry entry);
  [[nodiscard]] bool quiet() const;

  ByteBudget _budget;                 // outlives the charges in _entries
  std::atomic<bool> _stopped{false};  // set under _mutex
  callbacks::Mutex _mutex;
  std::condition_variable _wake;
  std::vector<Entry> _entries KESTREL_GUARDED_BY(_mutex);
  std::atomic<bool> _filled{false};                  // whether there are any; set under _mutex
  callbacks::ShortWait _waits;                       // the taker's
  bool _waiting KESTREL_GUARDED_BY(_mutex) = false;  // the taker sleeps and nobody has woken it yet
};

}  // namespace kestrel::streams
