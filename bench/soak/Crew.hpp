#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <kestrel/host/Host.hpp>
#include <map>
#include <memory>
#include <mutex>
#include <remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp>
#include <string>
#include <thread>
#include <vector>

#include "Journal.hpp"
#include "Plan.hpp"
#include "Random.hpp"

namespace soak {

using Factory = remote_connectivity::asyncio::util::DataStreamMessengerFactory;
using Messenger = std::unique_ptr<remote_connectivity::asyncio::util::ISendReceiveMessenger>;

/// What the threads of one process share: the host, two factories with a connection each, the journal, and
/// the word that it is time to stop.
class Crew {
 public:
  enum class End { near, far };  ///< by habit, senders are near and receivers far

  Crew(Transport transport, std::uint32_t process, std::uint64_t seed, const std::string& endpoint,
       const std::filesystem::path& folder);
  ~Crew();
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  [[nodiscard]] Transport transport() const { return _transport; }
  [[nodiscard]] Journal& journal() { return _journal; }

  /// A messenger that sends as fast as it can, with that chunk size. While the server is away none can be
  /// made: tries again, until it is time to stop and for some seconds then; empty if that was in vain.
  [[nodiscard]] Messenger make(End end, const std::string& sendTo, const std::string& receiveFrom,
                               unsigned long chunkSize);

  /// Runs the work on a thread of its own, with choices of its own.
  void employ(std::function<void(Random&)> work);

  /// Sleeps; false, at once, when it is time to stop.
  bool pause(std::chrono::milliseconds time);
  [[nodiscard]] bool working() const { return !_stopping; }
  /// Ends the pauses.
  void stop();
  /// Waits for the threads.
  void finish();

  [[nodiscard]] std::uint64_t newSender();
  [[nodiscard]] std::uint32_t newReceiver() { return ++_receivers; }
  /// Writes down what the service says of refused and lost messages.
  void reportStatistics();

 private:
  void reportStatistics(const Factory& factory, std::uint32_t end);

  const Transport _transport;
  const std::uint32_t _process;
  Random _random;
  Journal _journal;
  kestrel::host::Host _host;
  std::unique_ptr<Factory> _near;
  std::unique_ptr<Factory> _far;
  std::atomic<std::uint32_t> _senders{0};
  std::atomic<std::uint32_t> _receivers{0};
  std::atomic<bool> _stopping{false};
  std::mutex _mutex;
  std::condition_variable _wake;
  std::mutex _reporting;  // one at a time, so that a newer number is not followed by an older one
  std::map<std::string, std::string> _errors;  // guarded by _reporting: the last one of each stream
  std::vector<std::thread> _threads;
};

}  // namespace soak
