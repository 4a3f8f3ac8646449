#pragma once

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "Pair.hpp"

namespace bench {

/// Counts what arrives, and lets a sender wait for it.
class Receipts {
 public:
  void add() {
    ++_count;
    _count.notify_one();
  }
  void waitFor(std::uint64_t count) const {
    for (auto seen = _count.load(); seen < count; seen = _count.load()) _count.wait(seen);
  }

 private:
  std::atomic<std::uint64_t> _count = 0;
};

inline void countReceipts(ISendReceiveMessenger& messenger, Receipts& receipts) {
  messenger.setReceiveHandler([&receipts](const DataStruct&) { receipts.add(); });
}

inline void echoRequests(ISendReceiveMessenger& messenger) {
  messenger.setRequestHandler([](const DataStruct& message) { return message; });
}

/// Eight threads with eight requests outstanding each.
struct ManyRequests {
  static constexpr int threads = 8;
  static constexpr int outstandingEach = 8;

  /// Each thread calls work(its number).
  template <class Work>
  static void onEachThread(Work&& work) {
    std::vector<std::thread> callers;
    for (int i = 0; i < threads; ++i) callers.emplace_back([&work, i] { work(i); });
    for (auto& caller : callers) caller.join();
  }

  static void run(ISendReceiveMessenger& messenger, const DataStruct& message, int requestsEach) {
    onEachThread([&](int) {
      std::deque<std::pair<std::shared_future<DataStruct>, std::string>> pending;
      for (int i = 0; i < requestsEach + outstandingEach; ++i) {
        if (i < requestsEach) pending.push_back(messenger.asyncRequest(message));
        if (i < outstandingEach - 1 || pending.empty()) continue;
        benchmark::DoNotOptimize(
            messenger.getAsyncRequestResult(pending.front().first, pending.front().second));
        pending.pop_front();
      }
    });
  }
};

}  // namespace bench
