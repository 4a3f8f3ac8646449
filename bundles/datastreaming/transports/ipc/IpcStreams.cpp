#include "transports/ipc/IpcStreams.hpp"

#include <sys/ioctl.h>
#include <unistd.h>
#include <kestrel/callbacks/HeldOverFork.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <map>
#include <stdexcept>
#include <tuple>

#include "delivery/Log.hpp"
#include "transports/StreamToken.hpp"

namespace kestrel::streams {

namespace {

/// All folders that the process uses.
struct Folders {
  callbacks::Mutex mutex;
  // A child that is forked has no use for those of its parent.
  using Key = std::tuple<pid_t, std::string, std::uint64_t>;
  std::map<Key, std::weak_ptr<IpcStreams>> open KESTREL_GUARDED_BY(mutex);

  static Folders& shared() {
    ForkedSockets::prepare();  // what is made under the lock takes theirs: a fork must take this one first
    static auto* const folders = callbacks::makeHeldOverFork<Folders>();
    return *folders;
  }
  void beforeFork() KESTREL_UNCHECKED { mutex.lock(); }
  void afterFork() KESTREL_UNCHECKED { mutex.unlock(); }
  void afterForkInChild() KESTREL_UNCHECKED { mutex.unlock(); }
};

int startWatching() {
  const int watch = ForkedSockets::open([] { return ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC); });
  if (watch < 0 && errno == EMFILE) {
    throw std::runtime_error(
        "streams between processes need to watch their folder, and the user has reached "
        "fs.inotify.max_user_instances or the process its limit of open files");
  }
  return watch;
}

/// Forgets those that have gone, now and then.
template <class Map>
void sweep(Map& map) {
  if (map.size() % 64 == 63) std::erase_if(map, [](const auto& item) { return item.second.expired(); });
}

}  // namespace

/// Tries consumers again that could not be reached.
class IpcStreams::Retry final : public IpcLoopClient {
 public:
  explicit Retry(std::weak_ptr<IpcStreams> streams) : _streams(std::move(streams)) {}
  void writable() override {}
  void ended() override {}
  bool tick() override {
    const auto streams = _streams.lock();
    return streams && streams->tryAgain();
  }

 private:
  const std::weak_ptr<IpcStreams> _streams;
};

std::shared_ptr<IpcStreams> IpcStreams::in(const std::string& path, std::uint64_t limit) {
  Folders& folders = Folders::shared();
  const callbacks::MutexLock lock(folders.mutex);
  auto& known = folders.open[{::getpid(), path, limit}];
  auto streams = known.lock();
  if (!streams) {
    streams.reset(new IpcStreams(path, limit));
    streams->start();
    known = streams;
  }
  return streams;
}

IpcStreams::IpcStreams(std::string path, std::uint64_t limit)
    : _folder(std::move(path)), _limit(limit), _changes(startWatching(), "inotify_init1") {
  const callbacks::MutexLock lock(_reading);
  watchFolder();
}

IpcStreams::~IpcStreams() = default;

void IpcStreams::start() {
  _folder.removeDead();
  const callbacks::MutexLock lock(_reading);  // the loop may have something to tell before it is known here
  _loop = std::make_shared<IpcLoop>(_changes.get(), [weak = weak_from_this()] {
    if (const auto streams = weak.lock()) streams->refresh();
  });
  _retry = std::make_shared<Retry>(weak_from_this());
  _loop->addTicked(_retry);
}

void IpcStreams::watchFolder() {
  constexpr std::uint32_t wanted = IN_MOVED_TO | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  if (::inotify_add_watch(_changes.get(), _folder.path().c_str(), wanted) >= 0) {
    _watched = _folder.identity();
    return;
  }
  throw std::runtime_error("the folder " + _folder.path() + " cannot be watched: " + lastError());
}

std::shared_ptr<IpcStream> IpcStreams::open(const std::string& name) {
  if (name.empty()) return IpcStream::create(shared_from_this(), makeToken({}), _limit);
  const callbacks::MutexLock lock(_mutex);
  sweep(_streams);
  auto& known = _streams[name];
  auto stream = known.lock();
  if (!stream) {
    stream = IpcStream::create(shared_from_this(), makeToken(name), _limit);
    known = stream;
  }
  return stream;
}

void IpcStreams::watchFor(const std::shared_ptr<IpcStream>& stream) {
  const callbacks::MutexLock lock(_reading);
  sweep(_watching);
  auto& known = _watching[stream->token()];
  if (known.lock() == stream) return;
  known = stream;
  lookFor(*stream);
}

/// A consumer that took its place before this is asked is seen, whoever reads of it.
bool IpcStreams::somethingNew() const {
  int bytes = 0;
  return ::ioctl(_changes.get(), FIONREAD, &bytes) != 0 || bytes > 0 || _readers > 0;
}

void IpcStreams::refresh() {
  if (!somethingNew()) return;
  Held held;
  const callbacks::MutexLock lock(_reading);
  ++_readers;
  readAllChanges();
  --_readers;
  held.swap(_held);
}

void IpcStreams::readAllChanges() {
  try {
    if (std::exchange(_changesLost, false)) lookForAll();
    readChanges();
  } catch (const std::exception& error) {  // no memory
    _changesLost = true;
    logError(std::string("who comes to a folder of streams could not be read: ") + error.what());
    _loop->startTicking();
  }
}

void IpcStreams::readChanges() {
  alignas(inotify_event) std::array<char, 16384> changes;
  while (true) {
    const auto size = ::read(_changes.get(), changes.data(), changes.size());
    if (size <= 0) return;
    for (const char* at = changes.data(); at < changes.data() + size;) {
      inotify_event change{};
      std::memcpy(&change, at, sizeof change);
      handle(change, change.len > 0 ? at + sizeof change : "");
      at += sizeof change + change.len;
    }
  }
}

void IpcStreams::handle(const inotify_event& change, const std::string& name) {
  if ((change.mask & IN_Q_OVERFLOW) != 0) return lookForAll();
  if ((change.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0) return makeAgain();
  if ((change.mask & IN_DELETE) != 0) {
    _lastRemoval = Clock::now();
    if (_removed.empty()) _firstRemoval = _lastRemoval;
    if (isDwellers(name)) _removed.insert(name);
    return _loop->startTicking();
  }
  if (const auto stream = watching(name)) tell(*stream, name);
}

/// Who wants to know of that consumer.
std::shared_ptr<IpcStream> IpcStreams::watching(const std::string& name) {
  const auto found = _watching.find(StreamFolder::tokenIn(name));
  if (found == _watching.end()) return nullptr;
  return _held.emplace_back(found->second.lock());
}

/// Somebody has removed the folder; connections that there are go on.
void IpcStreams::makeAgain() {
  try {
    _folder.make();
    watchFolder();
  } catch (const std::exception& error) {
    _lastRemoval = Clock::now();  // so that it is tried again
    _loop->startTicking();
    return logError(error.what());
  }
  placeRemoved({});
  lookForAll();
}

/// Whether somebody has removed the folder, or places in it whose consumers live. Returns whether it may be
/// about to be removed.
bool IpcStreams::findRemoved() {
  constexpr std::chrono::seconds longestRemoval{3};
  constexpr std::chrono::milliseconds pause{
      200};  // so that who removes everything is not in our way, nor we in his
  constexpr std::chrono::seconds longestPause{1};
  const auto now = Clock::now();
  const auto since = now - _lastRemoval;
  if (since < pause && now - _firstRemoval < longestPause) return true;
  _firstRemoval = now;
  const auto names = std::exchange(_removed, {});
  if (_folder.identity() != _watched) {
    makeAgain();
  } else {
    for (const auto& name : names) placeRemoved(name);
  }
  return since < longestRemoval;
}

void IpcStreams::lookForAll() {
  for (const auto& [token, weak] : _watching) {
    if (const auto& stream = _held.emplace_back(weak.lock())) lookFor(*stream);
  }
}

void IpcStreams::lookFor(IpcStream& stream) {
  for (const auto& name : _folder.consumersOf(stream.token())) tell(stream, name);
}

void IpcStreams::tell(IpcStream& stream, const std::string& name) {
  try {
    if (stream.consumerCame(name)) return;
  } catch (const std::exception& error) {  // no socket, or no memory
    logError("a consumer could not be reached yet: " + std::string(error.what()));
  }
  lookAgain(name);
}

void IpcStreams::lookAgain(const std::string& name) {
  const callbacks::MutexLock lock(_mutex);
  _unreached.push_back({name, Clock::now()});
  _loop->startTicking();
}

bool IpcStreams::tryAgain() {
  // A process that dies closes one socket after the other: what the next consumer is to have must not go to
  // the one that still listens.
  constexpr std::chrono::milliseconds pause{50};
  const auto isDue = [due = Clock::now() - pause](const Unreached& one) { return one.since <= due; };
  Held held;
  std::vector<Unreached> theirs;
  bool more = false;
  {
    const callbacks::MutexLock lock(_mutex);
    std::ranges::copy_if(_unreached, std::back_inserter(theirs), isDue);
    std::erase_if(_unreached, isDue);
    more = !_unreached.empty();
  }
  const callbacks::MutexLock lock(_reading);
  for (const auto& [name, since] : theirs) {
    if (const auto stream = watching(name)) tell(*stream, name);
  }
  if (_changesLost) readAllChanges();
  const bool again = findRemoved();  // whoever is not reached now asks for himself
  held.swap(_held);
  return again || more;
}

void IpcStreams::Dweller::wake() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(_event.get(), &one, sizeof one);
}

void IpcStreams::settle(const std::string& name, std::weak_ptr<Dweller> dweller) {
  const callbacks::MutexLock lock(_mutex);
  _dwellers[name] = std::move(dweller);
}

bool IpcStreams::isDwellers(const std::string& name) {
  const callbacks::MutexLock lock(_mutex);
  return _dwellers.contains(name);
}

void IpcStreams::leave(const std::string& name) {
  const callbacks::MutexLock lock(_mutex);
  _dwellers.erase(name);
}

/// The place of that name, or all places if it is empty.
void IpcStreams::placeRemoved(const std::string& name) {
  std::vector<std::shared_ptr<Dweller>> theirs;
  {
    const callbacks::MutexLock lock(_mutex);
    const auto found = _dwellers.find(name);
    if (found != _dwellers.end()) theirs.push_back(found->second.lock());
    if (name.empty()) {
      for (const auto& [place, dweller] : _dwellers) theirs.push_back(dweller.lock());
    }
  }
  for (const auto& dweller : theirs) {
    if (dweller) dweller->placeRemoved();
  }
}

}  // namespace kestrel::streams
