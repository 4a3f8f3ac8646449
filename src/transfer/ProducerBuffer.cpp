#include "transfer/ProducerBuffer.hpp"

#include "kestrel/diagnostics/FunctionTrace.hpp"
#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/framework/ServiceLookup.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::diagnostics::Severity;
using kestrel::threadpool::stop_token;

namespace {
const kestrel::diagnostics::Logger logger("asyncio::util::ProducerBuffer");
constexpr char tag[] = "ProducerBuffer::processSendQueue: ";
}  // namespace

ProducerBuffer::ProducerBuffer(const SendHandler& sendHandler, std::size_t msgSizeLimit,
                               std::chrono::milliseconds interval)
    : _sendHandler(sendHandler), _msgSizeLimit(msgSizeLimit) {
  const kestrel::diagnostics::FunctionTrace scope(
      logger,
      "remote_connectivity::asyncio::util::ProducerBuffer::ProducerBuffer("
      "const remote_connectivity::asyncio::util::SendHandler&, size_t, std::chrono::milliseconds)");
  _threadPool = kestrel::framework::findService<kestrel::threadpool::ThreadPool>();
  _dataSendScheduler = std::make_unique<kestrel::threadpool::ScheduledTaskSubmitter>(_threadPool);
  logger.log(Severity::setup, "starting periodic work with interval: ", interval.count());
  // The first run may begin before postWork() returns; the lock holds it until the stop source is in place.
  const kestrel::callbacks::MutexLock lock(_dataSendQueueMutex);
  _dataSendSchedulerStopSrc =
      _dataSendScheduler->postWork([this](const stop_token&) { processSendQueue(); }, interval, true);
}

ProducerBuffer::~ProducerBuffer() {
  {
    // Under the lock, so that a run cannot miss it between looking at the source and going to sleep.
    const kestrel::callbacks::MutexLock lock(_dataSendQueueMutex);
    _dataSendSchedulerStopSrc.request_stop();
    _dataSendQueueCv.notify_one();
  }
  _dataSendScheduler->shutdown();
}

void ProducerBuffer::enqueue(const std::uint8_t* data, std::size_t size, AttributeMap&& attributes) {
  append(data, size, std::move(attributes));
  _dataSendQueueCv.notify_one();
}

std::size_t ProducerBuffer::enqueueAndCount(const std::uint8_t* data, std::size_t size,
                                            AttributeMap&& attributes) {
  return append(data, size, std::move(attributes));
}

std::size_t ProducerBuffer::append(const std::uint8_t* data, std::size_t size, AttributeMap&& attributes) {
  Element element(std::vector<std::uint8_t>(data, data + size), std::move(attributes));
  attributes.clear();
  const kestrel::callbacks::MutexLock lock(_dataSendQueueMutex);
  _dataSendQueue.push_back(std::move(element));
  return _dataSendQueue.size();
}

void ProducerBuffer::processSendQueue() {
  kestrel::callbacks::UniqueLock lock(_dataSendQueueMutex);
  _dataSendQueueCv.wait(lock.native(), [this]() KESTREL_REQUIRES(_dataSendQueueMutex) {
    return !_dataSendQueue.empty() || _dataSendSchedulerStopSrc.stop_requested();
  });
  const std::size_t length = _dataSendQueue.size();
  const bool stopRequested = _dataSendSchedulerStopSrc.stop_requested();
  lock.unlock();
  if (stopRequested) {
    logger.log(Severity::setup, tag, " _dataSendSchedulerStopSrc.stop_requested() == true. Returning");
    return;
  }
  logger.log(Severity::setup, tag, " _dataSendQueue.size: ", length);
  if (length == 0) {
    logger.log(Severity::setup, tag, " _dataSendQueue is empty! Returning");
    return;
  }
  lock.lock();
  // The handler gets copies: if it throws, the message is still queued.
  auto [data, attributes] = _dataSendQueue.front();
  _sendHandler(std::move(data), std::move(attributes));
  _dataSendQueue.pop_front();
}

}  // namespace remote_connectivity::asyncio::util
