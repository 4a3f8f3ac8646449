#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "transports/FileDescriptor.hpp"
#include "transports/ipc/LocalSocket.hpp"

namespace kestrel::streams {

/// The folder in which the consumers of all streams are found: each one's listening socket lies there under a
/// name of its own, "<token>.<boot>.<time>-<process>-<random>": the token of its stream, which boot of the
/// machine it belongs to, and when it came. Safe from any thread.
class StreamFolder {
 public:
  /// Makes the folder, for its owner only, unless it is there. Throws std::runtime_error that names the
  /// folder if it belongs to somebody else, if others may write to it, or if it lies on a file system that
  /// machines share.
  explicit StreamFolder(std::string path) : _path(std::move(path)) { make(); }
  /// Makes it again, if somebody has removed it. Throws as above.
  void make() const;

  /// A consumer's place, which goes with this object: who looks from now on finds it. One thread at a time.
  class Place {
   public:
    /// Throws std::runtime_error that names the folder.
    Place(const StreamFolder& folder, std::string name);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    /// Nobody finds it any more.
    void withdraw() noexcept;
    /// The socket that listens there.
    [[nodiscard]] int socket() const { return _socket.get(); }

   private:
    void bindAndListen(int folder);

    const std::string _folder;
    const std::string _name;
    const int _process;
    const LocalSocket _socket;
  };
  /// A name that no other consumer has.
  [[nodiscard]] static std::string newName(const std::string& token);

  /// The names of the stream's consumers, the one that came first to the front.
  [[nodiscard]] std::vector<std::string> consumersOf(const std::string& token) const;

  /// Removes the names that killed processes have left, of whatever stream.
  void removeDead() const;

  struct Connected {
    enum class State {
      connected,
      busy,     ///< it cannot be now; later
      gone,     ///< nobody is there any more, and the name has been removed
      refused,  ///< by us, and why
    };
    State state = State::gone;
    std::unique_ptr<LocalSocket> socket = nullptr;
    std::string why = {};
  };
  /// Connects to that consumer, without waiting. Throws std::system_error where no socket can be made.
  [[nodiscard]] Connected connect(const std::string& name) const;

  /// The stream's token in the name of a consumer; empty if it is no such name.
  [[nodiscard]] static std::string tokenIn(const std::string& name);
  /// Its process in the name of a consumer.
  [[nodiscard]] static std::string processIn(const std::string& name);

  [[nodiscard]] const std::string& path() const { return _path; }
  /// Tells the folder that is there now from one that was removed; zeros if there is none.
  [[nodiscard]] std::pair<std::uint64_t, std::uint64_t> identity() const;

 private:
  const std::string _path;  // it is open only while it is used, so that its removal shows
};

/// Whether the process at the other end belongs to our user.
[[nodiscard]] bool isOfOurUser(int socket);

}  // namespace kestrel::streams
