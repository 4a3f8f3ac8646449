#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <kestrel/callbacks/ExitGate.hpp>
#include <mutex>
#include <optional>
#include <thread>

#include "transports/FileDescriptor.hpp"
#include "transports/nats/NatsHandles.hpp"

namespace kestrel::streams {

/// Reads and writes the socket of one connection of the C client on a thread of its own.
///
/// The client's own way of writing either waits for the socket inside publish or leaves small messages lying
/// for a millisecond. Driven from here, publish only appends to a buffer, and whoever published may flush it
/// at once without ever waiting. Over TLS that is not so: there the client waits for the socket to take, or
/// to give, the rest of a record. So all writing over TLS is left to the loop's thread, with a deadline, and
/// a record is not read before all of it has come.
class SocketLoop {
 public:
  static constexpr std::chrono::microseconds heldBack{200};

  /// `writable` runs on the loop's thread when the socket takes bytes again, and after each wake()
  /// and wakeLater(); `lost` wherever the client finds that its connection has ended, perhaps more than once.
  /// The client's lock is held then: it must neither wait nor call the client.
  SocketLoop(std::function<void()> writable, std::function<void()> lost, bool secure);
  ~SocketLoop();
  SocketLoop(const SocketLoop&) = delete;
  SocketLoop& operator=(const SocketLoop&) = delete;

  /// Makes the connection that is opened with these options use this loop. It serves one only.
  void install(natsOptions* options);

  /// Whether there is a connection, as far as the client has noticed.
  [[nodiscard]] bool attached() const { return _socket >= 0; }

  /// Runs `writable` soon. Safe from any thread.
  void wake();

  /// Runs `writable` after `heldBack`, for bytes that are not flushed at once. Safe from any thread, and
  /// cheap when it was called before within that time.
  void wakeLater();

  /// Writes what the client has buffered, as far as the socket takes it, unless the loop reads just now,
  /// which then writes afterwards. Returns whether nothing is left. For one thread at a time.
  bool flush();

  /// Waits until the client's code that reads now has returned. It looks a subscription up and then uses it
  /// without holding it, so one must not be freed before this was called after its end. Not on the loop's
  /// thread.
  void settle();

  /// Whether only the loop's thread may flush.
  [[nodiscard]] bool writesAlone() const { return _secure; }

  /// Ends the thread; nothing comes in afterwards, but by hangUp(). Not on that thread.
  void stop();

  /// Lets the client find that the connection has ended. If it had to end it, it would wait half a second for
  /// an answer that nobody reads any more. Only after stop().
  void hangUp();
  /// For each use of the client that may reach the socket: empty once that is over TLS and the process ends.
  [[nodiscard]] std::optional<callbacks::ExitGate::Pass> enter() const;

  /// While one exists, the calling thread flushes what it appends by itself, and the loop is not woken for
  /// it.
  class FlushesItself {
   public:
    FlushesItself() { flushing = true; }
    ~FlushesItself() { flushing = false; }
    FlushesItself(const FlushesItself&) = delete;
    FlushesItself& operator=(const FlushesItself&) = delete;

    static thread_local bool flushing;
  };

 private:
  static natsStatus attach(void** userData, void* loop, natsConnection* connection, natsSock socket);
  static natsStatus setRead(void* userData, bool wanted);
  static natsStatus setWrite(void* userData, bool wanted);
  static natsStatus detach(void* userData);
  void forgetSocket();
  [[nodiscard]] bool write(natsConnection* connection);
  void run();
  void turn();
  [[nodiscard]] bool takeEvents(int socket, short events);

  const std::function<void()> _writable;
  const std::function<void()> _lost;
  const bool _secure;
  const FileDescriptor _event;
  const FileDescriptor _timer;
  std::atomic<bool> _woken{false};  // _event was signalled and not seen yet
  std::atomic<bool> _timed{false};  // _timer runs
  std::atomic<natsConnection*> _connection{nullptr};
  std::atomic<int> _socket{-1};
  std::mutex _named;  // held while the socket must not be closed, or its number becomes another one's
  std::atomic<bool> _wantsRead{false};
  std::atomic<bool> _wantsWrite{false};
  std::atomic<bool> _stopped{false};
  // Held while the client uses the socket: whichever thread finds it broken closes it.
  std::mutex _using;
  std::thread _thread;
};

}  // namespace kestrel::streams
