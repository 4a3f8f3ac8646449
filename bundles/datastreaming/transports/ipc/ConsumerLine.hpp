#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/ipc/ConsumerConnection.hpp"
#include "transports/ipc/IpcLoop.hpp"
#include "transports/outgoing/Outbox.hpp"

namespace kestrel::streams {

class IpcStream;

/// What one consumer is yet to get from this process, or the first consumer to come. Used under the lock of
/// its stream, but for what the loop calls.
class ConsumerLine final : public IpcLoopClient {
 public:
  using Record = std::shared_ptr<OutgoingRecord>;

  explicit ConsumerLine(std::weak_ptr<IpcStream> stream) : _stream(std::move(stream)) {}
  ~ConsumerLine() override { _outbox.close("the stream was closed"); }

  /// The consumer whose line it is to be; empty: the first one to come.
  void expect(std::string name) { _name = std::move(name); }
  [[nodiscard]] const std::string& name() const { return _name; }
  /// The consumer is reached: it gets what waits, and all that follows. Throws std::system_error, and it is
  /// not reached then.
  void connect(const std::shared_ptr<ConsumerLine>& self, std::shared_ptr<ConsumerConnection> connection);
  [[nodiscard]] bool connected() const { return _connection != nullptr; }

  /// What waits for the consumer, or is on its way in a block that it has not taken yet.
  [[nodiscard]] std::uint64_t used();
  void post(const Record& record);
  /// The consumer does not get a message for which it has no room; it is told later that there was one.
  void miss(std::uint64_t producer, std::uint64_t number) { _missed[producer] = number; }
  void tellMissed();
  [[nodiscard]] bool misses() const { return !_missed.empty(); }

  [[nodiscard]] bool lost() const { return _connection && _connection->lost(); }
  /// The consumer is taken for one that has gone.
  void giveUp();
  /// What has become of it, once it is lost; the line is of no use afterwards.
  struct Remains {
    std::uint64_t unhandled = 0;   ///< messages that were sent and that it has not dealt with
    std::vector<Record> unsent{};  ///< in their order
  };
  [[nodiscard]] Remains remains();
  /// Writes what waits, until then at the latest.
  void writeOut(TimePoint deadline);

  /// Writes what waits, as far as the socket takes it.
  void pump() { _outbox.pump(); }

  // The loop's.
  void writable() override;
  void ended() override;
  bool tick() override;

 private:
  const std::weak_ptr<IpcStream> _stream;
  std::string _name;
  std::shared_ptr<ConsumerConnection> _connection;  // set once
  Outbox _outbox{~std::uint64_t{0}};                // the stream keeps the bound
  std::map<std::uint64_t, std::uint64_t> _missed;   // the number of the last message, by producer
};

}  // namespace kestrel::streams
