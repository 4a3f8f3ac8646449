#include "transports/ipc/AccountsPage.hpp"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace kestrel::streams {

namespace {
constexpr std::size_t pageSize = 4096;
}

std::unique_ptr<AccountsPage> AccountsPage::create() {
  std::unique_ptr<AccountsPage> page(new AccountsPage);
  page->_file.emplace(::memfd_create("kestrel-accounts", MFD_CLOEXEC | MFD_ALLOW_SEALING), "memfd_create");
  const int file = page->descriptor();
  const bool made = ::ftruncate(file, pageSize) == 0 &&
                    ::fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0 &&
                    page->map(file);
  if (!made) throw std::system_error(errno, std::generic_category(), "a page for the accounts");
  return page;
}

std::unique_ptr<AccountsPage> AccountsPage::open(int descriptor) {
  std::unique_ptr<AccountsPage> page(new AccountsPage);
  if (sealedSize(descriptor) != pageSize || !page->map(descriptor)) return nullptr;
  return page;
}

AccountsPage::~AccountsPage() {
  if (_accounts != nullptr) ::munmap(_accounts, pageSize);
}

bool AccountsPage::map(int descriptor) {
  void* const page = ::mmap(nullptr, pageSize, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (page == MAP_FAILED) return false;
  _accounts = static_cast<Accounts*>(page);
  return true;
}

std::optional<std::uint64_t> sealedSize(int descriptor) {
  constexpr int wanted = F_SEAL_SHRINK | F_SEAL_GROW;
  const int seals = ::fcntl(descriptor, F_GET_SEALS);
  struct stat status {};
  if (seals < 0 || (seals & wanted) != wanted || ::fstat(descriptor, &status) != 0) return std::nullopt;
  // Huge pages of their own kind may be missing when they are touched.
  struct statfs system {};
  if (::fstatfs(descriptor, &system) != 0 || system.f_type != TMPFS_MAGIC) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace kestrel::streams
