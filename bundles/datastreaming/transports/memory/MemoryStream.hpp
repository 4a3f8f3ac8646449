#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "delivery/StreamContext.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/memory/MemoryQueue.hpp"

namespace kestrel::streams {

/// One stream within the process: gives every message to the queue of each consumer, or keeps it until the
/// first consumer comes. Safe from any thread.
class MemoryStream {
 public:
  explicit MemoryStream(std::uint64_t queueLimit) : _queueLimit(queueLimit) {}
  ~MemoryStream();
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

  /// Where messages are counted that nobody has read when the stream goes: where it was opened last.
  void openedBy(const std::shared_ptr<StreamContext>& context);

  /// Why a message of that size would not be taken over now; nothing if it would.
  [[nodiscard]] std::optional<std::string> refusal(std::uint64_t size, std::uint64_t cost);

  /// Takes a message over for all consumers, or for none; then it returns why.
  [[nodiscard]] std::optional<std::string> publish(const std::shared_ptr<MemoryMessage>& message,
                                                   std::uint64_t cost);

  /// Tells all consumers of a producer.
  void announce(MemoryQueue::Kind kind, std::uint64_t producer);

  /// Changes whenever a queue is made that lacks what came before.
  [[nodiscard]] std::uint64_t queuesMade() const { return _queuesMade.load(std::memory_order_relaxed); }

  /// The queue of a new consumer; the first one's holds what was kept.
  [[nodiscard]] std::shared_ptr<MemoryQueue> attach();
  void detach(const std::shared_ptr<MemoryQueue>& queue);

 private:
  [[nodiscard]] std::shared_ptr<MemoryQueue> addQueue() KESTREL_REQUIRES(_mutex);
  [[nodiscard]] std::optional<std::string> refusalLocked(std::uint64_t size, std::uint64_t cost) const
      KESTREL_REQUIRES(_mutex);

  const std::uint64_t _queueLimit;
  callbacks::Mutex _mutex;
  // Without a consumer the only queue is the one of the consumer to come.
  std::vector<std::shared_ptr<MemoryQueue>> _queues KESTREL_GUARDED_BY(_mutex){
      std::make_shared<MemoryQueue>(_queueLimit)};
  bool _attended KESTREL_GUARDED_BY(_mutex) = false;  // a consumer is attached
  std::atomic<std::uint64_t> _queuesMade{1};          // written under the lock
  std::weak_ptr<StreamContext> _context KESTREL_GUARDED_BY(_mutex);
};

/// The named streams of the process. A stream lives as long as anybody holds it. Safe from any thread.
class MemoryStreams {
 public:
  /// The streams that all factories share, never destroyed.
  static MemoryStreams& shared();

  explicit MemoryStreams(std::uint64_t queueLimit = ByteBudget::defaultLimit) : _queueLimit(queueLimit) {}

  /// The stream of that name; a new one for each empty name.
  [[nodiscard]] std::shared_ptr<MemoryStream> open(const std::string& name);

 private:
  void sweep() KESTREL_REQUIRES(_mutex);

  const std::uint64_t _queueLimit;
  callbacks::Mutex _mutex;
  std::map<std::string, std::weak_ptr<MemoryStream>> _streams KESTREL_GUARDED_BY(_mutex);
  std::size_t _sweepAt KESTREL_GUARDED_BY(_mutex) = 64;
};

}  // namespace kestrel::streams
