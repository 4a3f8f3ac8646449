#pragma once

#include <nats/nats.h>

#include <memory>
#include <string>

namespace kestrel::streams {

/// Owners of what the C client allocates.
template <class T, void (*destroy)(T*)>
struct NatsDeleter {
  void operator()(T* object) const { destroy(object); }
};
using NatsOptions = std::unique_ptr<natsOptions, NatsDeleter<natsOptions, natsOptions_Destroy>>;
using NatsMessage = std::unique_ptr<natsMsg, NatsDeleter<natsMsg, natsMsg_Destroy>>;
using NatsSubscription =
    std::unique_ptr<natsSubscription, NatsDeleter<natsSubscription, natsSubscription_Destroy>>;
using JetStreamContext = std::unique_ptr<jsCtx, NatsDeleter<jsCtx, jsCtx_Destroy>>;

/// What a status means, with the client's own remark about the newest failure of this thread.
[[nodiscard]] std::string describe(natsStatus status);

/// Throws std::runtime_error that says what was tried, unless the status is NATS_OK.
void require(natsStatus status, const char* what);

}  // namespace kestrel::streams
