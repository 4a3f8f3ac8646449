#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "sequencing/Stamp.hpp"
#include "transports/ipc/AccountsPage.hpp"
#include "transports/ipc/LocalSocket.hpp"
#include "transports/ipc/Record.hpp"

namespace kestrel::streams {

/// What one packet brought. The descriptors are closed with it.
class Packet {
 public:
  explicit Packet(std::size_t room)
      : _bytes(std::make_unique_for_overwrite<std::uint8_t[]>(room)), _room(room) {}
  ~Packet() { clear(); }
  Packet(const Packet&) = delete;
  Packet& operator=(const Packet&) = delete;

  enum class Received {
    packet,
    nothing,    ///< there is none now
    end,        ///< there will be none any more
    oversized,  ///< one that was longer, or brought more descriptors, than any may, or than can be taken
  };
  /// Takes the next one off the socket; what this one brought is gone.
  [[nodiscard]] Received receive(int socket);

  [[nodiscard]] std::span<const std::uint8_t> bytes() const { return {_bytes.get(), _size}; }
  /// The next descriptor; -1 if there is no further one.
  [[nodiscard]] int takeDescriptor() { return _taken < _count ? _descriptors[_taken++] : -1; }

 private:
  void clear();
  void keepDescriptors(msghdr& header);

  const std::unique_ptr<std::uint8_t[]> _bytes;
  const std::size_t _room;
  std::size_t _size = 0;
  std::array<int, mostDescriptors> _descriptors{};
  std::size_t _count = 0;
  std::size_t _taken = 0;
};

/// The way from one process to a consumer, as its delivery thread sees it: who sends over it, and what the
/// sender is to know of what became of the messages. Not thread-safe.
class IncomingConnection {
 public:
  explicit IncomingConnection(std::unique_ptr<LocalSocket> socket) : _socket(std::move(socket)) {}

  [[nodiscard]] int socket() const { return _socket->get(); }

  /// The first record has come. Returns false if it is not the first one, or the descriptor is none of a page
  /// of accounts.
  [[nodiscard]] bool greeted(int accounts);
  [[nodiscard]] bool knowsAccounts() const { return _page != nullptr; }

  /// A message has been dealt with as far as can be.
  void took(const Stamp& stamp);
  /// So many that were still to be read are counted as lost here.
  void gaveUp(std::uint64_t messages);
  /// The producer has said that nothing of it will follow.
  void left(std::uint64_t producer) { _producers.erase(producer); }
  /// Those that have not.
  [[nodiscard]] std::vector<std::uint64_t> producers() const;

 private:
  struct Unfinished {
    std::uint64_t payload = 0;
    std::uint64_t pieces = 0;  // that have come of it
  };
  static constexpr std::size_t mostProducers = 4096;

  const std::unique_ptr<LocalSocket> _socket;
  std::unique_ptr<AccountsPage> _page;
  std::uint64_t _taken = 0;
  std::uint64_t _held = 0;  // of those, pieces of payloads that are not whole
  std::unordered_map<std::uint64_t, Unfinished> _producers;
};

}  // namespace kestrel::streams
