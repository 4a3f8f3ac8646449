#include "remote_connectivity/asyncio/util/MessengerException.hpp"

#include "kestrel/diagnostics/FatalReport.hpp"

namespace remote_connectivity::asyncio::util {

namespace {
// Never destroyed: requests time out until the very end of the process.
const std::string& invalidChannelMessengerText = *new const std::string("Invalid channel messenger.");
const std::string& timeoutText = *new const std::string("Timeout waiting for response.");
}  // namespace

const std::string& getStringForExceptionType(MessengerExceptionType type) {
  switch (type) {
    case MessengerExceptionType::InvalidChannelMessenger:
      return invalidChannelMessengerText;
    case MessengerExceptionType::Timeout:
      return timeoutText;
  }
  kestrel::diagnostics::fatalReport("Item is corrupt.", "MessengerError");
}

MessengerException::MessengerException(MessengerExceptionType type)
    : std::runtime_error(getStringForExceptionType(type)), _type(type) {}

MessengerException::~MessengerException() = default;

}  // namespace remote_connectivity::asyncio::util
