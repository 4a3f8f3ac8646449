#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "delivery/OwnedThread.hpp"

namespace kestrel::streams {

/// Who is told of its socket, on the thread of the loop.
class IpcLoopClient {
 public:
  virtual ~IpcLoopClient() = default;

  /// The socket may be written to again, or wake() was called.
  virtual void writable() = 0;
  /// The far end has gone.
  virtual void ended() = 0;
  /// Some time has passed. Returns whether it wants to be asked again.
  virtual bool tick() = 0;
};

/// The thread by which a process looks after the sockets that it sends over, and after its folder: it writes
/// what senders left, and learns who has come and who has gone. Safe from any thread, also destroyed on its
/// own.
class IpcLoop {
 public:
  /// Calls that function, on its thread, whenever there is something to read from that descriptor, which
  /// stays open for as long as the loop exists. Throws std::system_error.
  IpcLoop(int watched, std::function<void()> changed);
  ~IpcLoop();
  IpcLoop(const IpcLoop&) = delete;
  IpcLoop& operator=(const IpcLoop&) = delete;

  /// The client, which it does not hold, of a socket; the number is the socket's. Throws std::system_error.
  void add(std::uint64_t number, int socket, std::weak_ptr<IpcLoopClient> client);
  /// Before the socket is closed.
  void remove(std::uint64_t number, int socket);

  /// Has writable() called when the socket takes something again.
  void awaitWritable(std::uint64_t number, int socket);
  /// Has writable() called soon.
  void wake(std::uint64_t number);
  /// The same after 200 µs; cheap when anybody has asked for that within this time.
  void wakeLater(std::uint64_t number);
  /// A client without a socket, for tick() only.
  void addTicked(std::weak_ptr<IpcLoopClient> client);
  /// Has tick() called ten times a second from now on, until no client wants it any more.
  void startTicking();

 private:
  class State;
  const std::shared_ptr<State> _state;  // which its thread holds as well
  OwnedThread _thread;
};

}  // namespace kestrel::streams
