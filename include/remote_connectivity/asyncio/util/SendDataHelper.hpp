#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "remote_connectivity/asyncio/util/DataStruct.hpp"
#include "remote_connectivity/asyncio/util/Export.hpp"

namespace remote_connectivity::asyncio::util {

/// Hands one message to a producer; the bytes are valid during the call only.
using SendFunction = std::function<std::shared_future<std::string>(
    const std::uint8_t* data, std::uint64_t size, const AttributeMap& attributes)>;

/// Cuts large payloads into chunks and holds a rate of messages per second in front of a send function.
///
/// Several threads may call send() and stop() at once; sends are serialised. sendWithLimit() and
/// splitAndSend() are what send() is made of: whoever calls them directly must serialise the calls. If the
/// send function throws, the sender stays marked as busy and stop() waits for ever, so give it one that does
/// not throw. The destructor neither stops nor waits.
class REMOTE_CONNECTIVITY_EXPORT SendDataHelper {
 public:
  explicit SendDataHelper(const SendFunction& sendFunc);
  virtual ~SendDataHelper();
  SendDataHelper(const SendDataHelper&) = delete;
  SendDataHelper& operator=(const SendDataHelper&) = delete;

  /// Sends a payload: whole if it is smaller than the size limit (bytes), else in chunks of that size. May
  /// sleep for the rate limit (messages per second). Gives the future of the last message sent; once stopped,
  /// a ready future of the empty text.
  std::shared_future<std::string> send(const std::vector<std::uint8_t>& data, AttributeMap&& attributes,
                                       std::size_t msgSizeLimit, std::size_t msgRateLimit);

  /// The same for bytes that lie elsewhere; they are read during the call only, unless the send function
  /// shares them.
  std::shared_future<std::string> send(const std::uint8_t* data, std::size_t size, AttributeMap&& attributes,
                                       std::size_t msgSizeLimit, std::size_t msgRateLimit);

  /// Sends one message under the rate limit. When the limit of the current second is used up, sleeps until
  /// 1.2 s after that second began.
  std::shared_future<std::string> sendWithLimit(const std::uint8_t* data, std::size_t size,
                                                const AttributeMap& attributes, std::size_t msgRateLimit);

  /// Sends a payload in chunks, marked in the attribute map, which it changes: "COMPRESSIONTYPE" is "chunk"
  /// on each; "UNCOMPRESSEDSIZE" is the size limit on each but the last and 0 on the last. An empty payload
  /// gives a future without a state. The size limit must not be 0.
  std::shared_future<std::string> splitAndSend(const std::vector<std::uint8_t>& data,
                                               AttributeMap&& attributes, std::size_t msgSizeLimit,
                                               std::size_t msgRateLimit);

  /// Lets the message in flight finish, its sleep of up to 1.2 s included, and refuses all others from now
  /// on.
  void stop();

 private:
  friend class SendDataHelperAccess;  // lets tests set the clock

  /// Where time comes from and how it passes.
  struct Clock {
    std::function<std::chrono::system_clock::time_point()> now;
    std::function<void(std::chrono::nanoseconds)> sleep;
  };
  REMOTE_CONNECTIVITY_LOCAL SendDataHelper(const SendFunction& sendFunc, Clock clock);

  REMOTE_CONNECTIVITY_LOCAL std::shared_future<std::string> split(const std::uint8_t* data, std::size_t size,
                                                                  AttributeMap& attributes,
                                                                  std::size_t msgSizeLimit,
                                                                  std::size_t msgRateLimit);
  REMOTE_CONNECTIVITY_LOCAL bool enter();
  REMOTE_CONNECTIVITY_LOCAL void leave();
  REMOTE_CONNECTIVITY_LOCAL bool waitForPeriod(std::chrono::nanoseconds elapsed);
  REMOTE_CONNECTIVITY_LOCAL void restartPeriod();

  SendFunction _sendFunc;
  std::chrono::system_clock::time_point
      _startTime;                 // of the counting period; guard: the caller's serialisation
  std::uint64_t _msgCounter = 0;  // messages in that period; same guard
  std::mutex _sendMutex;          // held by send() for its whole run
  std::atomic<bool> _stopped{false};
  std::condition_variable _sendCv;  // goes with _waitMutex
  std::mutex _waitMutex;            // guards _sendInProgress
  bool _sendInProgress = false;
  Clock _clock;
};

}  // namespace remote_connectivity::asyncio::util
