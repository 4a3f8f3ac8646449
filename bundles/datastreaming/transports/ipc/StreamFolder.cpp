#include "transports/ipc/StreamFolder.hpp"

#include <fcntl.h>
#include <linux/magic.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "transports/StreamToken.hpp"

namespace kestrel::streams {

namespace {

constexpr const char* unfinished = ".new.";  // what a name begins with until its socket listens
constexpr std::chrono::seconds longestUnfinished{60};

int newSocket() {
  return ForkedSockets::open(
      [] { return ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); });
}

/// The address of an open file, or of a short name in an open folder: paths may be longer than an address.
struct Address {
  explicit Address(int file, const std::string& name = {}) {
    const std::string path = "/proc/self/fd/" + std::to_string(file) + name;
    value.sun_family = AF_UNIX;
    std::memcpy(value.sun_path, path.c_str(), std::min(path.size(), sizeof value.sun_path - 1));
  }
  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&value); }

  sockaddr_un value{};
};

/// Tells the names of this boot from those that an earlier one left behind.
const std::string& boot() {
  static const auto& id = *new const std::string([] {
    std::string text;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> text;
    return text.substr(0, 8);
  }());
  return id;
}

/// File systems of which several machines may see the same folder, and sockets mean nothing to others.
bool machinesShare(int folder) {
  constexpr std::array<std::uint32_t, 10> shared{
      NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC, SMB2_SUPER_MAGIC,  CIFS_SUPER_MAGIC, V9FS_MAGIC,
      CEPH_SUPER_MAGIC, AFS_SUPER_MAGIC, OCFS2_SUPER_MAGIC, FUSE_SUPER_MAGIC, CODA_SUPER_MAGIC};
  struct statfs system {};
  return ::fstatfs(folder, &system) == 0 && std::ranges::any_of(shared, [&](std::uint32_t magic) {
           return static_cast<std::uint32_t>(system.f_type) == magic;
         });
}

std::runtime_error unusable(const std::string& path, const std::string& why) {
  return std::runtime_error("the folder " + path + " cannot be used for streams: " + why);
}

FileDescriptor openFolder(const std::string& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) throw unusable(path, lastError());
  return {folder, "open"};
}

void check(const std::string& path, int folder) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) throw unusable(path, lastError());
  if (status.st_uid != ::geteuid()) {
    throw unusable(path, "it belongs to the user " + std::to_string(status.st_uid) +
                             ", and this process runs as " + std::to_string(::geteuid()));
  }
  if ((status.st_mode & 0022) != 0) throw unusable(path, "others than its owner may write to it");
  if (machinesShare(folder)) throw unusable(path, "it lies on a file system that machines share");
}

std::vector<std::string> namesIn(const std::string& path) {
  std::error_code failure;
  std::vector<std::string> names;
  std::filesystem::directory_iterator at(path, failure);
  for (; !failure && at != std::filesystem::directory_iterator(); at.increment(failure)) {
    names.push_back(at->path().filename());
  }
  return names;
}

/// Removes what nobody uses: names of an earlier boot, and those whose process died before it listened.
void sweep(const std::string& path, const std::string& name) {
  struct stat status {};
  const bool begun = name.starts_with(unfinished);
  if (!begun && (StreamFolder::tokenIn(name).empty() || name.find('.' + boot() + '.') != std::string::npos)) {
    return;
  }
  const std::string file = path + "/" + name;
  if (::lstat(file.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
  const auto age = std::chrono::system_clock::now() - std::chrono::system_clock::from_time_t(status.st_mtime);
  if (!begun || age > longestUnfinished) ::unlink(file.c_str());
}

}  // namespace

void StreamFolder::make() const {
  if (::mkdir(_path.c_str(), 0700) != 0 && errno != EEXIST) throw unusable(_path, lastError());
  check(_path, openFolder(_path).get());
}

std::pair<std::uint64_t, std::uint64_t> StreamFolder::identity() const {
  struct stat status {};
  if (::stat(_path.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

std::string StreamFolder::newName(const std::string& token) {
  std::array<char, 20> time{};
  const auto now = std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
  std::snprintf(time.data(), time.size(), "%016llx", static_cast<unsigned long long>(now));
  return token + '.' + boot() + '.' + time.data() + '-' + std::to_string(::getpid()) + '-' +
         randomToken().substr(0, 8);
}

StreamFolder::Place::Place(const StreamFolder& folder, std::string name)
    : _folder(folder.path()), _name(std::move(name)), _process(::getpid()), _socket(newSocket(), "socket") {
  const FileDescriptor opened = openFolder(_folder);
  check(_folder, opened.get());
  try {
    bindAndListen(opened.get());
  } catch (const std::system_error& error) {
    throw unusable(_folder, error.code().message() + ", for the socket of a consumer");
  }
}

/// Under another name until it listens: a name at which nobody listens has been left by a process that died.
void StreamFolder::Place::bindAndListen(int folder) {
  const std::string first = unfinished + _name.substr(_name.rfind('-') + 1);
  const Address address(folder, "/" + first);
  const auto require = [](int result) {
    if (result != 0) throw std::system_error(errno, std::generic_category());
  };
  require(::bind(_socket.get(), address.get(), sizeof address.value));
  try {
    require(::listen(_socket.get(), SOMAXCONN));
    require(::renameat(folder, first.c_str(), folder, _name.c_str()));
  } catch (...) {
    ::unlinkat(folder, first.c_str(), 0);
    throw;
  }
}

StreamFolder::Place::~Place() {
  withdraw();
}

void StreamFolder::Place::withdraw() noexcept {
  if (_process == ::getpid()) ::unlink((_folder + "/" + _name).c_str());
}

std::vector<std::string> StreamFolder::consumersOf(const std::string& token) const {
  std::vector<std::string> found = namesIn(_path);
  for (const auto& name : found) sweep(_path, name);
  const std::string beginning = token + '.' + boot() + '.';
  std::erase_if(found, [&](const auto& name) { return !name.starts_with(beginning); });
  std::ranges::sort(found);  // behind the beginning comes the time
  return found;
}

/// A process that cannot be seen may be one of another container; whether it listens says more.
void StreamFolder::removeDead() const {
  for (const auto& name : namesIn(_path)) {
    pid_t process = 0;
    const std::string digits = processIn(name);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), process);
    const bool unseen = error == std::errc() && process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
    if (unseen && !tokenIn(name).empty()) (void)connect(name);  // which removes it
  }
}

StreamFolder::Connected StreamFolder::connect(const std::string& name) const {
  using State = Connected::State;
  const std::string path = _path + "/" + name;
  const int found = ::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
  if (found < 0 && errno == ENOENT) return {};
  const FileDescriptor place(found, "open");
  struct stat status {};
  if (::fstat(found, &status) != 0) return {};
  if (status.st_uid != ::geteuid() || !S_ISSOCK(status.st_mode)) {
    return {State::refused, nullptr, path + " is no socket of our user"};
  }
  auto socket = std::make_unique<LocalSocket>(newSocket(), "socket");
  constexpr int room = 256 << 10;  // for the largest packet, whatever the system's default is
  ::setsockopt(socket->get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  const Address address(found);
  if (::connect(socket->get(), address.get(), sizeof address.value) == 0) {
    if (isOfOurUser(socket->get())) return {State::connected, std::move(socket)};
    return {State::refused, nullptr, "a process of another user listens at " + path};
  }
  if (errno == EAGAIN || errno == EINTR) return {State::busy};
  if (errno == ECONNREFUSED) ::unlink(path.c_str());
  if (errno == ECONNREFUSED || errno == ENOENT) return {};
  return {State::refused, nullptr, path + ": " + lastError()};
}

std::string StreamFolder::tokenIn(const std::string& name) {
  const auto dot = name.find('.');
  if (dot == 0 || std::ranges::count(name, '.') != 2) return {};
  return name.substr(0, dot);
}

std::string StreamFolder::processIn(const std::string& name) {
  const auto from = name.find('-', name.rfind('.')), to = name.rfind('-');
  return from < to ? name.substr(from + 1, to - from - 1) : std::string();
}

bool isOfOurUser(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

}  // namespace kestrel::streams
