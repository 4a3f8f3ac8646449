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
using JetStreamContext = std::unique_ptr<jsCtx, NatsDeleter<jsCtx, jsCtx_Destroy>>;

/// How much may wait to be taken from a subscription; what comes beyond is dropped.
struct PendingLimits {
  static constexpr int none = -1;  // as the C client has it

  int messages = none;
  int bytes = none;
};

/// Shares a message that the C client has made.
///
/// The client hands every message that is destroyed to a thread of its own, which wakes up for it. At many
/// messages a second that costs more than anything else, so messages are let go of many at a time: those
/// used last, a quarter of a megabyte of data at most, stay until more follow.
[[nodiscard]] std::shared_ptr<natsMsg> share(natsMsg* message);

/// About how much memory a message takes that has come in.
[[nodiscard]] std::uint64_t memoryOf(natsMsg* message);

/// What a status means, with the client's own remark about the newest failure of this thread.
[[nodiscard]] std::string describe(natsStatus status);

/// Throws std::runtime_error that says what was tried, unless the status is NATS_OK.
void require(natsStatus status, const char* what);

}  // namespace kestrel::streams
