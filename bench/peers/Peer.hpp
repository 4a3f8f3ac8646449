#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

/// One way to talk to a far side, used as its users would use it. The far side returns what it is asked with
/// and drops what it is sent. One thread uses it.
class Peer {
 public:
  virtual ~Peer() = default;

  /// What is sent from now on.
  virtual void load(std::size_t bytes) = 0;
  /// Asks with it and waits for the answer.
  virtual void exchange() = 0;
  /// Sends it one way.
  virtual void send() = 0;
  /// Waits until the far side has dealt with all that was sent.
  virtual void settle() = 0;
  /// Asks so many times, with so many questions under way at any time.
  virtual void exchangeMany(int count, int outstanding) = 0;
};

/// A way to talk, by name. The far side runs in a process of its own, unless serve is empty: then the near
/// side brings it along.
struct PeerKind {
  std::string name;
  std::string address;
  std::function<std::unique_ptr<Peer>(const std::string& address)> connect;
  std::function<std::shared_ptr<void>(const std::string& address)> serve;  ///< until the result goes
};

std::vector<PeerKind> kestrelKinds(const std::string& natsUrl, const std::string& folder);
std::vector<PeerKind> zeroMqKinds(const std::string& folder);
std::vector<PeerKind> grpcKinds(const std::string& folder);
std::vector<PeerKind> natsKinds(const std::string& natsUrl);

}  // namespace bench
