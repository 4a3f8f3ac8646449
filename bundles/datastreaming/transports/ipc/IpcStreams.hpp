#pragma once

#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "sequencing/ByteBudget.hpp"
#include "transports/FileDescriptor.hpp"
#include "transports/ipc/IpcLoop.hpp"
#include "transports/ipc/IpcStream.hpp"
#include "transports/ipc/StreamFolder.hpp"

namespace kestrel::streams {

/// The streams of this process in one folder: who sends, who has come to receive. It lives as long as anybody
/// holds it. Safe from any thread.
class IpcStreams final : public std::enable_shared_from_this<IpcStreams> {
 public:
  /// The ones of that folder, the same for all who ask. Throws std::runtime_error that names the folder.
  [[nodiscard]] static std::shared_ptr<IpcStreams> in(const std::string& path,
                                                      std::uint64_t limit = ByteBudget::defaultLimit);
  ~IpcStreams();
  IpcStreams(const IpcStreams&) = delete;
  IpcStreams& operator=(const IpcStreams&) = delete;

  /// The stream of that name; a new one for each empty name.
  [[nodiscard]] std::shared_ptr<IpcStream> open(const std::string& name);

  /// From now on the stream is told of its consumers: now of those that are there.
  void watchFor(const std::shared_ptr<IpcStream>& stream);
  /// Tells the streams of all consumers that have come until now.
  void refresh();
  /// Tells the stream of that consumer once more, soon.
  void lookAgain(const std::string& name);

  /// A consumer of this process, for what becomes of its place: what wakes its thread.
  class Dweller {
   public:
    /// Somebody has removed its place; it takes it again.
    void placeRemoved() {
      _homeless = true;
      wake();
    }
    [[nodiscard]] bool takeHomeless() { return _homeless.exchange(false); }
    void wake() const;
    /// Readable after wake().
    [[nodiscard]] int descriptor() const { return _event.get(); }

   private:
    const LocalSocket _event{ForkedSockets::open([] { return ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC); }),
                             "eventfd"};
    std::atomic<bool> _homeless{false};
  };
  void settle(const std::string& name, std::weak_ptr<Dweller> dweller);
  /// Before it gives its place up.
  void leave(const std::string& name);

  [[nodiscard]] const StreamFolder& folder() const { return _folder; }
  [[nodiscard]] const std::shared_ptr<IpcLoop>& loop() const { return _loop; }

 private:
  class Retry;
  using Held = std::vector<std::shared_ptr<IpcStream>>;
  IpcStreams(std::string path, std::uint64_t limit);
  void start();
  void watchFolder() KESTREL_REQUIRES(_reading);
  [[nodiscard]] bool somethingNew() const;
  void readAllChanges() KESTREL_REQUIRES(_reading);
  void readChanges() KESTREL_REQUIRES(_reading);
  void handle(const inotify_event& change, const std::string& name) KESTREL_REQUIRES(_reading);
  void makeAgain() KESTREL_REQUIRES(_reading);
  void lookForAll() KESTREL_REQUIRES(_reading);
  void lookFor(IpcStream& stream) KESTREL_REQUIRES(_reading);
  void tell(IpcStream& stream, const std::string& name) KESTREL_REQUIRES(_reading);
  [[nodiscard]] std::shared_ptr<IpcStream> watching(const std::string& name) KESTREL_REQUIRES(_reading);
  [[nodiscard]] bool tryAgain();
  [[nodiscard]] bool findRemoved() KESTREL_REQUIRES(_reading);
  [[nodiscard]] bool isDwellers(const std::string& name);
  void placeRemoved(const std::string& name);

  const StreamFolder _folder;
  const std::uint64_t _limit;
  const LocalSocket _changes;    // tells who comes to the folder
  std::atomic<int> _readers{0};  // of it, that have not yet told what they read

  callbacks::Mutex _reading;  // before the locks of streams
  std::unordered_map<std::string, std::weak_ptr<IpcStream>> _watching
      KESTREL_GUARDED_BY(_reading);  // by token
  // A folder in which sockets were bound does not tell of its own end, but first of theirs.
  std::pair<std::uint64_t, std::uint64_t> _watched KESTREL_GUARDED_BY(_reading);
  std::set<std::string> _removed KESTREL_GUARDED_BY(_reading);  // places of this process, lately
  TimePoint _firstRemoval KESTREL_GUARDED_BY(_reading){};       // since it was looked after last
  TimePoint _lastRemoval KESTREL_GUARDED_BY(_reading){};
  bool _changesLost KESTREL_GUARDED_BY(_reading) = false;
  Held _held KESTREL_GUARDED_BY(_reading);  // while they are told, to be let go of without the lock

  callbacks::Mutex _mutex;  // behind those
  struct Unreached {
    std::string name;
    TimePoint since;
  };
  std::vector<Unreached> _unreached KESTREL_GUARDED_BY(_mutex);
  std::unordered_map<std::string, std::weak_ptr<IpcStream>> _streams KESTREL_GUARDED_BY(_mutex);  // by name
  std::unordered_map<std::string, std::weak_ptr<Dweller>> _dwellers KESTREL_GUARDED_BY(_mutex);

  std::shared_ptr<Retry> _retry;   // set by start()
  std::shared_ptr<IpcLoop> _loop;  // likewise; destroyed first
};

}  // namespace kestrel::streams
