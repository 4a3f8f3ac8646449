#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "transports/FileDescriptor.hpp"

namespace kestrel::streams {

/// A page of memory that both ends of a connection see. The consumer writes there what has become of the
/// messages, counted from the first one of the connection; the sender reads it whenever it likes, also when
/// the consumer has been killed. Neither believes it more than it must. Safe from any thread.
class AccountsPage {
 public:
  struct Accounts {
    std::atomic<std::uint64_t> taken;    ///< whose bytes are not needed any more where the sender keeps them
    std::atomic<std::uint64_t> handled;  ///< handed over, or counted as lost there
  };
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

  /// A new one, of zeros. Throws std::system_error.
  [[nodiscard]] static std::unique_ptr<AccountsPage> create();
  /// The one that another process has made; empty if it is no memory of fixed size.
  [[nodiscard]] static std::unique_ptr<AccountsPage> open(int descriptor);

  ~AccountsPage();
  AccountsPage(const AccountsPage&) = delete;
  AccountsPage& operator=(const AccountsPage&) = delete;

  [[nodiscard]] Accounts& accounts() const { return *_accounts; }
  /// Of the one who has made it, until it is closed.
  [[nodiscard]] int descriptor() const { return _file->get(); }
  void closeDescriptor() { _file.reset(); }

 private:
  AccountsPage() = default;
  [[nodiscard]] bool map(int descriptor);

  std::optional<FileDescriptor> _file;
  Accounts* _accounts = nullptr;
};

/// How many bytes a file of memory has which can neither shrink nor grow; nothing if it is anything else.
[[nodiscard]] std::optional<std::uint64_t> sealedSize(int descriptor);

}  // namespace kestrel::streams
