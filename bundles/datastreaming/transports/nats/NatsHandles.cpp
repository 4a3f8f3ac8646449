#include "transports/nats/NatsHandles.hpp"

#include <stdexcept>

namespace kestrel::streams {

std::string describe(natsStatus status) {
  std::string text = natsStatus_GetText(status);
  const char* remark = nats_GetLastError(nullptr);
  if (remark != nullptr && *remark != '\0') text += std::string(" (") + remark + ")";
  return text;
}

void require(natsStatus status, const char* what) {
  if (status != NATS_OK) throw std::runtime_error(std::string(what) + ": " + describe(status));
}

}  // namespace kestrel::streams
