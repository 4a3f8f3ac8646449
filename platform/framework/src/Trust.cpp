#include "Trust.hpp"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <vector>

namespace kestrel::framework {

namespace {

namespace fs = std::filesystem;

/// An entry of the user or group database, with the text that it points into.
template <class Entry, class Id>
class DatabaseEntry {
 public:
  using Query = int (*)(Id, Entry*, char*, std::size_t, Entry**);

  DatabaseEntry(Query query, Id id) {
    int error = ERANGE;
    for (std::size_t size = 1024; error == ERANGE && size <= largest; size *= 4) {
      _text.resize(size);
      error = query(id, &_entry, _text.data(), _text.size(), &_found);
    }
    if (error != 0) {
      _found = nullptr;
    }
  }

  [[nodiscard]] const Entry* get() const { return _found; }

 private:
  static constexpr std::size_t largest = std::size_t{1} << 22;
  std::vector<char> _text;
  Entry _entry{};
  Entry* _found = nullptr;
};

bool isPrivateGroup(gid_t group, uid_t owner) {
  const DatabaseEntry<passwd, uid_t> user(&getpwuid_r, owner);
  const DatabaseEntry<::group, gid_t> entry(&getgrgid_r, group);
  if (user.get() == nullptr || entry.get() == nullptr) {
    return false;
  }
  const std::string_view name = user.get()->pw_name;
  if (name != entry.get()->gr_name) {
    return false;
  }
  for (char** member = entry.get()->gr_mem; *member != nullptr; ++member) {
    if (name != *member) {
      return false;
    }
  }
  return true;
}

/// With an access list the group's bits are a mask over what the list grants to anybody.
bool hasAccessList(const fs::path& path) {
  return getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

std::string quoted(const fs::path& path) {
  return '"' + path.native() + '"';
}

std::string whyUntrustedItself(const fs::path& path, bool stickySuffices) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return quoted(path) + " cannot be examined: " + std::generic_category().message(errno);
  }
  const uid_t user = geteuid();
  if (status.st_uid != 0 && status.st_uid != user) {
    return quoted(path) + " belongs to user " + std::to_string(status.st_uid) + "; expected root or user " +
           std::to_string(user);
  }
  if (stickySuffices && (status.st_mode & S_ISVTX) != 0) {
    return {};
  }
  if ((status.st_mode & S_IWOTH) != 0) {
    return "all users may write to " + quoted(path);
  }
  if ((status.st_mode & S_IWGRP) != 0 &&
      (hasAccessList(path) || !isPrivateGroup(status.st_gid, status.st_uid))) {
    return "group " + std::to_string(status.st_gid) + " may write to " + quoted(path);
  }
  return {};
}

}  // namespace

std::string whyUntrusted(const fs::path& path) {
  auto reason = whyUntrustedItself(path, false);
  for (auto place = path; reason.empty() && place.has_relative_path();) {
    place = place.parent_path();
    reason = whyUntrustedItself(place, true);
  }
  return reason;
}

}  // namespace kestrel::framework
