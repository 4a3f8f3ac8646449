#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/ipc/AccountsPage.hpp"
#include "transports/ipc/IpcLoop.hpp"
#include "transports/ipc/LocalSocket.hpp"
#include "transports/ipc/Record.hpp"
#include "transports/outgoing/Writer.hpp"

namespace kestrel::streams {

class ConsumerLine;

/// The way from this process to one consumer, which may be in another one; what is appended is an
/// OutgoingRecord. It knows what the consumer has not dealt with yet, and keeps the blocks of those messages.
class ConsumerConnection final : public Writer {
 public:
  /// Throws std::system_error.
  ConsumerConnection(std::unique_ptr<LocalSocket> socket, std::shared_ptr<IpcLoop> loop);
  ~ConsumerConnection() override;

  [[nodiscard]] std::uint64_t number() const override { return _number; }
  [[nodiscard]] bool usable() const override { return !_lost && !_full; }
  [[nodiscard]] Written append(const Message& record) override;
  [[nodiscard]] int buffered() const override { return _buffered; }
  /// True also when the loop has been asked to go on.
  bool flush() override;
  /// A write costs little more than that, and who writes at once keeps the far side busy.
  [[nodiscard]] std::chrono::nanoseconds shortGap() const override { return std::chrono::microseconds(2); }
  void wake() override;
  void wakeLater() override { _loop->wakeLater(_number); }

  /// Has the loop look after the socket. Throws std::system_error.
  void attach(const std::shared_ptr<ConsumerLine>& line);
  /// The loop says that the socket takes something again.
  void writable();
  void markLost() { _lost = true; }
  [[nodiscard]] bool lost() const { return _lost; }

  /// What the messages cost that are not written yet, and those in blocks that the consumer has not taken.
  [[nodiscard]] std::uint64_t costUnderWay();
  /// How many messages were written that the consumer has not dealt with.
  [[nodiscard]] std::uint64_t unhandled();
  /// What was appended and not written, in its order. For when it is not used any more.
  [[nodiscard]] std::vector<std::shared_ptr<OutgoingRecord>> takeUnwritten();
  /// Waits until the socket takes something, at most that long.
  void awaitRoom(int milliseconds);

 private:
  struct Unwritten {
    std::shared_ptr<OutgoingRecord> record;
    memory::Frozen block = {};  // whose descriptor goes with it; of a message, once it is about to be written
  };
  struct UnderWay {
    std::uint64_t number = 0;  // of the message, counted from 1
    std::uint64_t cost = 0;
    bool isCopy = false;
    memory::Frozen block;
  };

  [[nodiscard]] std::size_t nextPacket();
  [[nodiscard]] bool findBlock(Unwritten& message);
  [[nodiscard]] bool sendPacket(std::size_t records);
  void noteSent(std::size_t records);
  void noteUnderWay(Unwritten message) KESTREL_REQUIRES(_mutex);
  void reapTaken() KESTREL_REQUIRES(_mutex);
  void findFailure(int error);
  void awaitBlocks();

  const std::uint64_t _number;
  const std::unique_ptr<LocalSocket> _socket;
  const std::shared_ptr<IpcLoop> _loop;
  const std::unique_ptr<AccountsPage> _page;
  std::weak_ptr<ConsumerLine> _line;  // set by attach()

  std::deque<Unwritten> _unwritten;     // of the thread that appends and flushes
  std::size_t _copiesUnwritten = 0;     // likewise: of the blocks in there
  std::atomic<int> _waitsForBlocks{0};  // one after the other
  std::atomic<int> _buffered{0};
  std::atomic<std::uint64_t> _costUnwritten{0};
  std::atomic<bool> _lost{false};
  std::atomic<bool> _full{false};   // until the loop says otherwise
  std::atomic<bool> _woken{false};  // and the loop has not seen it yet

  callbacks::Mutex _mutex;
  std::uint64_t _sent KESTREL_GUARDED_BY(_mutex) = 0;  // messages
  std::deque<UnderWay> _underWay KESTREL_GUARDED_BY(_mutex);
  std::uint64_t _costUnderWay KESTREL_GUARDED_BY(_mutex) = 0;
  std::size_t _copiesUnderWay KESTREL_GUARDED_BY(_mutex) = 0;
};

}  // namespace kestrel::streams
