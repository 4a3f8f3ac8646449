#include "remote_connectivity/asyncio/util/SendDataHelper.hpp"

#include <algorithm>
#include <thread>
#include <utility>

#include "Constants.hpp"
#include "LogFormat.hpp"
#include "kestrel/datastreaming/Keys.hpp"
#include "kestrel/diagnostics/FunctionTrace.hpp"
#include "kestrel/diagnostics/Logger.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::datastreaming::lasting::MessageAttributes;
using kestrel::diagnostics::Severity;
using namespace std::chrono_literals;

namespace {

const kestrel::diagnostics::Logger logger("asyncio::util::SendDataHelper");
constexpr char sendTag[] = "SendDataHelper::sendWithLimit: ";
constexpr char splitTag[] = "SendDataHelper::splitAndSend: ";

constexpr std::chrono::nanoseconds lastOfPeriod = 999'999'999ns;
constexpr std::chrono::nanoseconds resumeAfter = 1'200'000'000ns;  // 0.2 s beyond the period's end
constexpr auto stopPoll = 10ms;

std::shared_future<std::string> stoppedResult() {
  std::promise<std::string> promise;
  promise.set_value({});
  return promise.get_future().share();
}

}  // namespace

SendDataHelper::SendDataHelper(const SendFunction& sendFunc)
    : SendDataHelper(sendFunc,
                     Clock{[] { return std::chrono::system_clock::now(); },
                           [](std::chrono::nanoseconds wait) { std::this_thread::sleep_for(wait); }}) {}

SendDataHelper::SendDataHelper(const SendFunction& sendFunc, Clock clock)
    : _sendFunc(sendFunc), _startTime(clock.now()), _clock(std::move(clock)) {}

SendDataHelper::~SendDataHelper() = default;

std::shared_future<std::string> SendDataHelper::send(const std::vector<std::uint8_t>& data,
                                                     AttributeMap&& attributes, std::size_t msgSizeLimit,
                                                     std::size_t msgRateLimit) {
  return send(data.data(), data.size(), std::move(attributes), msgSizeLimit, msgRateLimit);
}

std::shared_future<std::string> SendDataHelper::send(const std::uint8_t* data, std::size_t size,
                                                     AttributeMap&& attributes, std::size_t msgSizeLimit,
                                                     std::size_t msgRateLimit) {
  const std::lock_guard lock(_sendMutex);
  if (size < msgSizeLimit) return sendWithLimit(data, size, attributes, msgRateLimit);
  return split(data, size, attributes, msgSizeLimit, msgRateLimit);
}

std::shared_future<std::string> SendDataHelper::sendWithLimit(const std::uint8_t* data, std::size_t size,
                                                              const AttributeMap& attributes,
                                                              std::size_t msgRateLimit) {
  if (!enter()) return stoppedResult();
  const std::chrono::nanoseconds elapsed = _clock.now() - _startTime;
  const bool periodOver = elapsed > lastOfPeriod;
  if (periodOver) {
    logger.log(Severity::setup, sendTag, " elapsed: ", LoggedSeconds{elapsed}, ", msgCounter: ", _msgCounter,
               ". Limit wasn't reached for 1sec. Resetting msgCounter and startTime");
    restartPeriod();
  }
  if (_msgCounter >= msgRateLimit) {
    if (!periodOver && !waitForPeriod(elapsed)) return stoppedResult();
    logger.log(Severity::setup, sendTag, " Resetting msgCounter and startTime");
    restartPeriod();
  }
  auto result = _sendFunc(data, size, attributes);
  ++_msgCounter;
  logger.log(Severity::setup, sendTag, " msgCounter: ", _msgCounter);
  leave();
  return result;
}

/// Marks a send as in progress, unless the sender is stopped.
bool SendDataHelper::enter() {
  const std::lock_guard lock(_waitMutex);
  if (_stopped) {
    logger.log(Severity::setup, sendTag, " SendDataHelper stopped.");
    _sendInProgress = false;
    return false;
  }
  _sendInProgress = true;
  return true;
}

void SendDataHelper::leave() {
  {
    const std::lock_guard lock(_waitMutex);
    _sendInProgress = false;
  }
  _sendCv.notify_all();
}

/// Sleeps until the next counting period may begin; false if the sender was stopped before.
bool SendDataHelper::waitForPeriod(std::chrono::nanoseconds elapsed) {
  // A wall clock that was set back would make this wait as long as the step.
  const auto wait = std::clamp(resumeAfter - elapsed, 0ns, resumeAfter);
  logger.log(Severity::setup, sendTag, " Reached limit. elapsed: ", LoggedSeconds{elapsed},
             ", msgCounter: ", _msgCounter, ". Waiting for ", LoggedSeconds{wait});
  if (_stopped) {
    logger.log(Severity::setup, sendTag, " SendDataHelper stopped during wait.");
    const std::lock_guard lock(_waitMutex);
    _sendInProgress = false;
    return false;
  }
  _clock.sleep(wait);
  return true;
}

void SendDataHelper::restartPeriod() {
  _msgCounter = 0;
  _startTime = _clock.now();
}

std::shared_future<std::string> SendDataHelper::splitAndSend(const std::vector<std::uint8_t>& data,
                                                             AttributeMap&& attributes,
                                                             std::size_t msgSizeLimit,
                                                             std::size_t msgRateLimit) {
  return split(data.data(), data.size(), attributes, msgSizeLimit, msgRateLimit);
}

std::shared_future<std::string> SendDataHelper::split(const std::uint8_t* data, std::size_t size,
                                                      AttributeMap& attributes, std::size_t msgSizeLimit,
                                                      std::size_t msgRateLimit) {
  attributes[MessageAttributes::CompressionType] = std::string(constants::Chunk);
  if (size == 0) return {};
  auto& moreMark = attributes[MessageAttributes::UnCompressedSize];
  for (std::size_t offset = 0;;) {
    const std::size_t left = size - offset;
    const std::size_t chunkSize = std::min(msgSizeLimit, left);
    logger.log(Severity::trace, splitTag, " chunkSize: ", chunkSize, ", offset: ", offset);
    moreMark = msgSizeLimit < left ? static_cast<long>(msgSizeLimit) : 0L;
    auto result = sendWithLimit(data + offset, chunkSize, attributes, msgRateLimit);
    if (_stopped) return stoppedResult();
    offset += chunkSize;
    if (offset >= size) return result;
  }
}

void SendDataHelper::stop() {
  const kestrel::diagnostics::FunctionTrace scope(
      logger, "void remote_connectivity::asyncio::util::SendDataHelper::stop()");
  _stopped = true;
  std::unique_lock lock(_waitMutex);
  // A send that finds the sender stopped ends without a notification, hence the slices.
  while (_sendInProgress) _sendCv.wait_for(lock, stopPoll);
}

}  // namespace remote_connectivity::asyncio::util
