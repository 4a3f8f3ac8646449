#pragma once

#include <boost/uuid/uuid.hpp>
#include <memory>
#include <string>

#include "remote_connectivity/asyncio/util/Export.hpp"

namespace remote_connectivity::asyncio::util {

/// Makes identifiers of 128 random bits from the host's crypto provider. No version or variant bits are set.
/// Construction is heavy, so keep one; several threads may call it at once. Errors of the crypto provider
/// reach the caller unchanged.
class REMOTE_CONNECTIVITY_EXPORT UUIDAdaptor {
 public:
  UUIDAdaptor();
  ~UUIDAdaptor();
  UUIDAdaptor(const UUIDAdaptor&) = delete;
  UUIDAdaptor& operator=(const UUIDAdaptor&) = delete;

  /// 16 fresh random bytes.
  [[nodiscard]] boost::uuids::uuid generateBytes();

  /// The standard text: 36 characters, lower-case hexadecimal in groups of 8, 4, 4, 4 and 12.
  [[nodiscard]] std::string toString(boost::uuids::uuid id);

  /// The text of a fresh identifier.
  [[nodiscard]] std::string operator()();

 private:
  class Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace remote_connectivity::asyncio::util
