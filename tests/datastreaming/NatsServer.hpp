#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace kestrel::streams {

/// A real server on a free port of the loopback interface, with a store in a directory of its own. Killed by
/// its process id when it goes, and by the system should the test die first.
class NatsServer {
 public:
  /// What a server needs beyond the defaults.
  struct Options {
    std::string certificate{};  ///< file; with it the server wants TLS
    std::string key{};
    std::string store{};  ///< further settings of JetStream
    std::string more{};   ///< further lines of the configuration
  };

  /// Why no server can be started here; empty if one can.
  static std::string unavailable();

  /// Starts it and waits until it listens.
  explicit NatsServer(Options given);
  NatsServer() : NatsServer(Options{}) {}
  ~NatsServer();
  NatsServer(const NatsServer&) = delete;
  NatsServer& operator=(const NatsServer&) = delete;

  /// As SIGKILL ends it, with no chance to write anything.
  void kill();
  /// Starts it again on the same port, over the same store.
  void start();
  /// Stops it where it is, and lets it go on.
  void freeze();
  void thaw();

  [[nodiscard]] int port() const { return _port; }
  [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(_port); }
  [[nodiscard]] std::string url(const std::string& query = {}) const;
  /// For files that belong to this server.
  [[nodiscard]] const std::filesystem::path& directory() const { return _directory; }
  /// The text of one of them, and of its "log".
  [[nodiscard]] std::string read(const std::string& file) const;
  /// For the starts to come.
  Options options;

 private:
  std::filesystem::path _directory;
  int _port = -1;
  pid_t _process = -1;
};

/// Makes a self-signed certificate for that name, or IP address, and its key; both end up in the directory.
struct Certificate {
  Certificate(const std::filesystem::path& directory, const std::string& subjectAlternative);
  std::string file;
  std::string key;
};

}  // namespace kestrel::streams
