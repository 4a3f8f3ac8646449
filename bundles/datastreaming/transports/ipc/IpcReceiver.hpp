#pragma once

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <memory>
#include <unordered_map>

#include "kestrel/callbacks/ShortWait.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/FileDescriptor.hpp"
#include "transports/Receiver.hpp"
#include "transports/Throttle.hpp"
#include "transports/ipc/AnswersTogether.hpp"
#include "transports/ipc/ForeignBlocks.hpp"
#include "transports/ipc/IncomingConnection.hpp"
#include "transports/ipc/IpcStreams.hpp"

namespace kestrel::streams {

/// Receives the messages of a stream from all processes, and from this one. The delivery thread reads the
/// sockets itself, so what is not handled yet waits with its senders.
class IpcReceiver final : public Receiver {
 public:
  IpcReceiver(std::shared_ptr<StreamContext> context, std::shared_ptr<IpcStream> stream,
              const PayloadSequencer::Limits& limits);
  ~IpcReceiver() override;

  void open() override;
  void run() override;
  void leave(bool insideRun) override;

 private:
  using Connections = std::unordered_map<int, std::unique_ptr<IncomingConnection>>;  // by socket

  void takePlace();
  void watch(int descriptor);
  [[nodiscard]] int timeout() const;
  [[nodiscard]] std::size_t wait();
  void turn(std::size_t ready);
  void acceptAll();
  void read(IncomingConnection& connection);
  void holdBackAnswers();
  [[nodiscard]] bool handlePacket(IncomingConnection& connection);
  [[nodiscard]] bool handle(IncomingConnection& connection, const IncomingRecord& record);
  [[nodiscard]] bool deliver(IncomingConnection& connection, const MessageRecord& record);
  [[nodiscard]] bool fill(Frame& frame, const MessageRecord& record);
  [[nodiscard]] bool fillFromBlock(Frame& frame, const MessageRecord& record);
  void handle(IncomingConnection& connection, const ProducerEvent& event);
  void dismiss(const IncomingConnection& connection, std::string why);
  void end(const IncomingConnection& connection);
  void leaveUnread();
  void leaveUnread(IncomingConnection& connection);
  bool reportStrangers();

  const std::uint64_t _mostBytes;  // of one message
  const std::shared_ptr<IpcStream> _stream;
  const FileDescriptor _epoll;
  const std::shared_ptr<IpcStreams::Dweller> _wake = std::make_shared<IpcStreams::Dweller>();

  callbacks::Mutex _mutex;
  std::string _name KESTREL_GUARDED_BY(_mutex);  // of its place
  std::unique_ptr<StreamFolder::Place> _place KESTREL_GUARDED_BY(_mutex);

  // The delivery thread's own.
  int _listener = -1;
  Connections _connections;
  Packet _packet{longestPacket};
  std::optional<AnswersTogether> _together;
  ForeignBlocks _blocks;
  callbacks::ShortWait _waits{std::chrono::microseconds(50)};
  std::array<epoll_event, 64> _events{};
  TimePoint _now{};         // when this turn began
  Throttle _strangers;      // connections of which what came was no message of ours
  std::string _fault;       // of the newest of them
  std::uint64_t _left = 0;  // messages that nobody will read
};

}  // namespace kestrel::streams
