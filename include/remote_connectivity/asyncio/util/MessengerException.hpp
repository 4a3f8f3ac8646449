#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "remote_connectivity/asyncio/util/Export.hpp"

namespace remote_connectivity::asyncio::util {

/// Which failure of the messenger layer a MessengerException stands for.
enum class MessengerExceptionType : std::uint8_t {
  InvalidChannelMessenger = 0,  ///< "Invalid channel messenger."
  Timeout = 1,                  ///< "Timeout waiting for response."
};

/// The message text of a type; the reference is valid for the life of the process. A value outside the
/// enumeration means that memory is corrupt: it is reported as fatal, and the process ends.
REMOTE_CONNECTIVITY_EXPORT const std::string& getStringForExceptionType(MessengerExceptionType type);

/// A failure of the messenger layer that callers tell apart by type; what() is the type's text.
class REMOTE_CONNECTIVITY_EXPORT MessengerException : public std::runtime_error {
 public:
  explicit MessengerException(MessengerExceptionType type);
  MessengerException(const MessengerException&) = default;
  MessengerException& operator=(const MessengerException&) = default;
  ~MessengerException() override;

  [[nodiscard]] MessengerExceptionType type() const noexcept { return _type; }

 private:
  MessengerExceptionType _type;
};

}  // namespace remote_connectivity::asyncio::util
