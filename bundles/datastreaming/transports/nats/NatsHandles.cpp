#include "transports/nats/NatsHandles.hpp"

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"

namespace kestrel::streams {

namespace {

/// Messages that nobody uses any more. Safe from any thread.
class Discarded {
 public:
  static Discarded& shared() {
    static auto* const discarded = new Discarded;  // threads may still let go while the process ends
    return *discarded;
  }

  void add(natsMsg* message) {
    std::vector<natsMsg*> full;
    {
      const callbacks::MutexLock lock(_mutex);
      _messages.push_back(message);
      _bytes += static_cast<std::size_t>(natsMsg_GetDataLength(message));
      if (_messages.size() < most && _bytes < mostBytes) return;
      full.reserve(most);
      full.swap(_messages);
      _bytes = 0;
    }
    for (natsMsg* const each : full) natsMsg_Destroy(each);
  }

 private:
  static constexpr std::size_t most = 256;
  static constexpr std::size_t mostBytes = 256 << 10;

  Discarded() { _messages.reserve(most); }

  callbacks::Mutex _mutex;
  std::vector<natsMsg*> _messages KESTREL_GUARDED_BY(_mutex);
  std::size_t _bytes KESTREL_GUARDED_BY(_mutex) = 0;
};

}  // namespace

std::shared_ptr<natsMsg> share(natsMsg* message) {
  return {message, [](natsMsg* last) {
            if (last != nullptr) Discarded::shared().add(last);
          }};
}

std::uint64_t memoryOf(natsMsg* message) {
  constexpr std::uint64_t overhead = 400;  // the client's own, and of the containers that hold it
  using Strings = std::unique_ptr<const char*[], decltype([](const char** array) { std::free(array); })>;
  std::uint64_t bytes = overhead + static_cast<std::uint64_t>(natsMsg_GetDataLength(message));
  const char** keys = nullptr;
  int count = 0;
  if (natsMsgHeader_Keys(message, &keys, &count) != NATS_OK) return bytes;
  const Strings keyOwner(keys);
  for (int i = 0; i < count; ++i) {
    const char** values = nullptr;
    int valueCount = 0;
    if (natsMsgHeader_Values(message, keys[i], &values, &valueCount) != NATS_OK) continue;
    const Strings valueOwner(values);
    bytes += std::strlen(keys[i]);
    for (int j = 0; j < valueCount; ++j) bytes += std::strlen(values[j]) + sizeof(char*);
  }
  return bytes;
}

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
