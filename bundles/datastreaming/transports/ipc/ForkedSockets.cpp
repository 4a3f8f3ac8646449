#include "transports/ipc/ForkedSockets.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <kestrel/callbacks/HeldOverFork.hpp>

#include <set>
#include <utility>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

namespace {

class Register {
 public:
  static Register& shared() {
    static auto* const one = callbacks::makeHeldOverFork<Register>();
    return *one;
  }

  void beforeFork() KESTREL_UNCHECKED { _mutex.lock(); }
  void afterFork() KESTREL_UNCHECKED { _mutex.unlock(); }
  void afterForkInChild() KESTREL_UNCHECKED {
    int pair[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair) == 0) ::close(pair[1]);
    for (const int descriptor : _descriptors) {
      if (pair[0] < 0 || ::dup3(pair[0], descriptor, O_CLOEXEC) < 0) ::close(descriptor);
    }
    if (pair[0] >= 0) ::close(pair[0]);
    _mutex.unlock();
  }

  int open(const std::function<int()>& call) {
    const callbacks::MutexLock lock(_mutex);
    const auto place = _descriptors.insert(-1).first;  // all that can fail comes before the call
    auto node = _descriptors.extract(place);
    const int descriptor = call();
    if (descriptor < 0) return descriptor;
    node.value() = descriptor;
    _descriptors.insert(std::move(node));
    return descriptor;
  }
  void close(int descriptor) {
    const callbacks::MutexLock lock(_mutex);
    _descriptors.erase(descriptor);
    ::close(descriptor);
  }

 private:
  callbacks::Mutex _mutex;
  std::set<int> _descriptors KESTREL_GUARDED_BY(_mutex);
};

}  // namespace

int ForkedSockets::open(const std::function<int()>& call) {
  return Register::shared().open(call);
}

void ForkedSockets::prepare() {
  (void)Register::shared();
}

void ForkedSockets::close(int descriptor) noexcept {
  Register::shared().close(descriptor);
}

}  // namespace kestrel::streams
