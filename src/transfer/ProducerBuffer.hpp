#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "kestrel/threadpool/ScheduledTaskSubmitter.hpp"
#include "remote_connectivity/asyncio/util/DataStruct.hpp"

namespace remote_connectivity::asyncio::util {

/// Sends one queued message; what it returns is not looked at. If it throws, the message stays queued and
/// nothing is sent any more.
using SendHandler = std::function<std::shared_future<std::string>(std::vector<std::uint8_t>, AttributeMap)>;

/// Queues outgoing messages and hands one of them to a handler per interval, on the host's thread pool.
///
/// Several threads may queue at once. While a message is handed over the queue is locked, so they wait. An
/// idle buffer keeps one pool thread blocked. The destructor drops what is still queued and waits for the
/// message in flight.
class ProducerBuffer {
 public:
  /// Begins at once. Throws std::invalid_argument where the host has no thread pool.
  ProducerBuffer(const SendHandler& sendHandler, std::size_t msgSizeLimit,
                 std::chrono::milliseconds interval);
  virtual ~ProducerBuffer();
  ProducerBuffer(const ProducerBuffer&) = delete;
  ProducerBuffer& operator=(const ProducerBuffer&) = delete;

  /// Queues a copy of the bytes. The queue has no bound.
  void enqueue(const std::uint8_t* data, std::size_t size, AttributeMap&& attributes);

  /// The same without waking the sender, for callers that queue many; gives the queue's length.
  std::size_t enqueueAndCount(const std::uint8_t* data, std::size_t size, AttributeMap&& attributes);

  /// Waits for a message, sends it and removes it: one run of the periodic work.
  void processSendQueue();

 private:
  using Element = std::pair<std::vector<std::uint8_t>, AttributeMap>;

  std::size_t append(const std::uint8_t* data, std::size_t size, AttributeMap&& attributes);

  SendHandler _sendHandler;
  [[maybe_unused]] std::size_t _msgSizeLimit;  // the handler applies it
  std::shared_ptr<kestrel::threadpool::ThreadPool> _threadPool;
  std::unique_ptr<kestrel::threadpool::ScheduledTaskSubmitter> _dataSendScheduler;
  kestrel::threadpool::stop_source _dataSendSchedulerStopSrc KESTREL_GUARDED_BY(_dataSendQueueMutex);
  std::deque<Element> _dataSendQueue KESTREL_GUARDED_BY(_dataSendQueueMutex);
  kestrel::callbacks::Mutex _dataSendQueueMutex;
  std::condition_variable _dataSendQueueCv;
};

}  // namespace remote_connectivity::asyncio::util
