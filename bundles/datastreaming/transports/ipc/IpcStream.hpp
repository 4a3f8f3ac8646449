#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "delivery/ErrorOutlet.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/Throttle.hpp"
#include "transports/ipc/ConsumerLine.hpp"

namespace kestrel::streams {

class IpcStreams;

/// One named stream as this process sends on it: a line to each consumer, wherever it is. Until the first
/// consumer comes it keeps what is sent. Safe from any thread.
class IpcStream final : public std::enable_shared_from_this<IpcStream> {
 public:
  /// It is closed when the last copy of that pointer goes. Of those that shared_from_this() gives, which
  /// others hold for a moment, none waits for anything when it goes.
  [[nodiscard]] static std::shared_ptr<IpcStream> create(std::shared_ptr<IpcStreams> home, std::string token,
                                                         std::uint64_t limit) KESTREL_UNCHECKED;
  IpcStream(const IpcStream&) = delete;
  IpcStream& operator=(const IpcStream&) = delete;

  [[nodiscard]] const std::string& token() const { return _token; }
  [[nodiscard]] IpcStreams& home() { return *_home; }

  /// Whose counters and reports tell what comes to light later: where it was opened last.
  void openedBy(const std::shared_ptr<StreamContext>& context);
  /// Somebody is about to send. Throws std::runtime_error.
  void join(const std::shared_ptr<ErrorOutlet>& errors);

  /// Why a message of that size would not be taken over now; nothing if it would.
  [[nodiscard]] std::optional<std::string> refusal(std::uint64_t size, std::uint64_t cost);
  /// Takes a message over for every consumer that has room, if there is one; else returns why not.
  [[nodiscard]] std::optional<std::string> publish(const std::shared_ptr<OutgoingRecord>& message,
                                                   const Stamp& stamp, std::uint64_t size);
  /// Tells all consumers.
  void announce(const ProducerEvent& event);
  /// Changes whenever a line is made that lacks what came before.
  [[nodiscard]] std::uint64_t linesMade() const { return _linesMade.load(std::memory_order_relaxed); }

  /// That consumer is there. Returns false if it cannot be reached now; ask again.
  bool consumerCame(const std::string& name);
  /// Parts from the consumers that have gone.
  void reap();
  /// For the loop: whether it shall ask again.
  [[nodiscard]] bool tick(ConsumerLine& line);

 private:
  using Lines = std::vector<std::shared_ptr<ConsumerLine>>;

  IpcStream(std::shared_ptr<IpcStreams> home, std::string token, std::uint64_t limit)
      : _home(std::move(home)), _token(std::move(token)), _limit(limit) {}

  /// Writes what consumers still take, for some seconds at most. What is left then is counted as lost, and
  /// reported.
  void close();
  void add(std::shared_ptr<ConsumerLine> line) KESTREL_REQUIRES(_mutex);
  [[nodiscard]] bool attended() const KESTREL_REQUIRES(_mutex);
  [[nodiscard]] std::shared_ptr<ConsumerLine> lineTo(const std::string& name) const KESTREL_REQUIRES(_mutex);
  [[nodiscard]] std::shared_ptr<ConsumerLine> expect(const std::string& name) KESTREL_REQUIRES(_mutex);
  void part(const std::string& name) KESTREL_REQUIRES(_mutex);
  [[nodiscard]] std::optional<std::string> refusalLocked(std::uint64_t size, std::uint64_t cost)
      KESTREL_REQUIRES(_mutex);
  void reapLocked() KESTREL_REQUIRES(_mutex);
  void countMissing(std::uint64_t messages) KESTREL_REQUIRES(_mutex);
  void countLost(std::uint64_t messages, const std::string& why) KESTREL_REQUIRES(_mutex);
  void report(const std::string& text) KESTREL_REQUIRES(_mutex);

  const std::shared_ptr<IpcStreams> _home;
  const std::string _token;
  const std::uint64_t _limit;
  std::atomic<std::uint64_t> _linesMade{0};

  callbacks::Mutex _mutex;
  // Without a consumer the only one is that of the consumer to come. It has no name.
  Lines _lines KESTREL_GUARDED_BY(_mutex);
  bool _closed KESTREL_GUARDED_BY(_mutex) = false;
  Throttle _missed KESTREL_GUARDED_BY(_mutex);
  std::weak_ptr<StreamContext> _context KESTREL_GUARDED_BY(_mutex);
  std::vector<std::weak_ptr<ErrorOutlet>> _errors KESTREL_GUARDED_BY(_mutex);  // of who joined; one is told
};

}  // namespace kestrel::streams
