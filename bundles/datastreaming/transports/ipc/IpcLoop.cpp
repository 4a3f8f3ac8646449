#include "transports/ipc/IpcLoop.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <array>
#include <atomic>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "delivery/Log.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/FileDescriptor.hpp"
#include "transports/ipc/LocalSocket.hpp"

namespace kestrel::streams {

class IpcLoop::State {
 public:
  State(int watched, std::function<void()> changed) : _changed(std::move(changed)) {
    watch(EPOLL_CTL_ADD, watched, EPOLLIN, folder);
    watch(EPOLL_CTL_ADD, _event.get(), EPOLLIN, event);
    watch(EPOLL_CTL_ADD, _timer.get(), EPOLLIN, timer);
  }

  void add(std::uint64_t number, int socket, std::weak_ptr<IpcLoopClient> client) {
    watch(EPOLL_CTL_ADD, socket, EPOLLRDHUP, number);
    const callbacks::MutexLock lock(_mutex);
    _clients[number] = std::move(client);
  }

  void addTicked(std::weak_ptr<IpcLoopClient> client) {
    const callbacks::MutexLock lock(_mutex);
    _clients[event] = std::move(client);
  }

  void remove(std::uint64_t number, int socket) {
    ::epoll_ctl(_epoll.get(), EPOLL_CTL_DEL, socket, nullptr);
    const callbacks::MutexLock lock(_mutex);
    _clients.erase(number);
    _awaited.erase(number);
  }

  void awaitWritable(std::uint64_t number, int socket) {
    watch(EPOLL_CTL_MOD, socket, EPOLLRDHUP | EPOLLOUT, number);
    const callbacks::MutexLock lock(_mutex);
    _awaited[number] = socket;
  }

  void wake(std::uint64_t number) {
    {
      const callbacks::MutexLock lock(_mutex);
      _woken.push_back(number);
      if (_woken.size() > 1) return;
    }
    signal();
  }

  void wakeLater(std::uint64_t number) {
    {
      const callbacks::MutexLock lock(_mutex);
      if (!_late.insert(number).second || _late.size() > 1) return;
    }
    itimerspec once{};
    once.it_value.tv_nsec = 200'000;
    ::timerfd_settime(_timer.get(), 0, &once, nullptr);
  }

  void startTicking() {
    if (!_ticking.exchange(true)) signal();
  }

  void stop() {
    _stopped = true;
    signal();
  }

  void run() {
    constexpr int tickMilliseconds = 100;
    std::array<epoll_event, 64> events{};
    auto next = Clock::now();
    while (!_stopped) {
      const int count =
          ::epoll_wait(_epoll.get(), events.data(), events.size(), _ticking ? tickMilliseconds : -1);
      try {
        for (int i = 0; i < count && !_stopped; ++i) handle(events[static_cast<std::size_t>(i)]);
        if (!_ticking || _stopped || Clock::now() < next) continue;
        next = Clock::now() + std::chrono::milliseconds(tickMilliseconds);
        tickAll();
      } catch (const std::exception& error) {  // no memory
        logError(std::string("streams between processes: ") + error.what());
        _ticking = true;
      }
    }
  }

 private:
  using Clock = std::chrono::steady_clock;
  // No socket has these numbers.
  static constexpr std::uint64_t folder = 0, event = ~std::uint64_t{0}, timer = event - 1;

  void watch(int operation, int descriptor, std::uint32_t events, std::uint64_t number) {
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.u64 = number;
    if (::epoll_ctl(_epoll.get(), operation, descriptor, &wanted) != 0 && operation == EPOLL_CTL_ADD) {
      throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
  }

  void signal() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(_event.get(), &one, sizeof one);
  }

  std::shared_ptr<IpcLoopClient> clientOf(std::uint64_t number) {
    const callbacks::MutexLock lock(_mutex);
    const auto found = _clients.find(number);
    return found == _clients.end() ? nullptr : found->second.lock();
  }

  void handle(const epoll_event& ready) {
    if (ready.data.u64 == folder) return _changed();
    if (ready.data.u64 == event) return wakeAll();
    if (ready.data.u64 == timer) return wakeLate();
    const auto client = clientOf(ready.data.u64);
    if (!client) return;
    if ((ready.events & (EPOLLHUP | EPOLLRDHUP | EPOLLERR)) != 0) return client->ended();
    stopAwaiting(ready.data.u64);
    client->writable();
  }

  void stopAwaiting(std::uint64_t number) {
    int socket = -1;
    {
      const callbacks::MutexLock lock(_mutex);
      const auto found = _awaited.extract(number);
      if (found.empty()) return;
      socket = found.mapped();
    }
    watch(EPOLL_CTL_MOD, socket, EPOLLRDHUP, number);
  }

  void wakeAll() {
    clear(_event.get());
    std::vector<std::uint64_t> woken;
    {
      const callbacks::MutexLock lock(_mutex);
      woken.swap(_woken);
    }
    writable(woken);
  }

  void wakeLate() {
    clear(_timer.get());
    std::set<std::uint64_t> late;
    {
      const callbacks::MutexLock lock(_mutex);
      late.swap(_late);
    }
    writable(late);
  }

  template <class Numbers>
  void writable(const Numbers& numbers) {
    for (const auto number : numbers) {
      if (const auto client = clientOf(number)) client->writable();
    }
  }

  static void clear(int signalled) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto taken = ::read(signalled, &count, sizeof count);
  }

  void tickAll() {
    std::vector<std::weak_ptr<IpcLoopClient>> clients;
    {
      const callbacks::MutexLock lock(_mutex);
      for (const auto& [number, client] : _clients) clients.push_back(client);
    }
    _ticking = false;  // whoever needs it from now on says so
    bool again = false;
    for (const auto& weak : clients) {
      const auto client = weak.lock();
      again = (client && client->tick()) || again;
    }
    if (again) _ticking = true;
  }

  const std::function<void()> _changed;
  const FileDescriptor _epoll{::epoll_create1(EPOLL_CLOEXEC), "epoll_create1"};
  const LocalSocket _event{ForkedSockets::open([] { return ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC); }),
                           "eventfd"};
  const FileDescriptor _timer{::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC),
                              "timerfd_create"};
  std::atomic<bool> _stopped{false};
  std::atomic<bool> _ticking{false};

  callbacks::Mutex _mutex;
  std::unordered_map<std::uint64_t, std::weak_ptr<IpcLoopClient>> _clients KESTREL_GUARDED_BY(_mutex);
  std::unordered_map<std::uint64_t, int> _awaited KESTREL_GUARDED_BY(_mutex);  // and their sockets
  std::vector<std::uint64_t> _woken KESTREL_GUARDED_BY(_mutex);
  std::set<std::uint64_t> _late KESTREL_GUARDED_BY(_mutex);
};

IpcLoop::IpcLoop(int watched, std::function<void()> changed)
    : _state(std::make_shared<State>(watched, std::move(changed))) {
  _thread.start("kestrel-ipc", [state = _state] { state->run(); });
}

IpcLoop::~IpcLoop() {
  _state->stop();
}

void IpcLoop::add(std::uint64_t number, int socket, std::weak_ptr<IpcLoopClient> client) {
  _state->add(number, socket, std::move(client));
}

void IpcLoop::addTicked(std::weak_ptr<IpcLoopClient> client) {
  _state->addTicked(std::move(client));
}

void IpcLoop::remove(std::uint64_t number, int socket) {
  _state->remove(number, socket);
}

void IpcLoop::awaitWritable(std::uint64_t number, int socket) {
  _state->awaitWritable(number, socket);
}

void IpcLoop::wake(std::uint64_t number) {
  _state->wake(number);
}

void IpcLoop::wakeLater(std::uint64_t number) {
  _state->wakeLater(number);
}

void IpcLoop::startTicking() {
  _state->startTicking();
}

}  // namespace kestrel::streams
