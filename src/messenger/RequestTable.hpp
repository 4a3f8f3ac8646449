#pragma once

#include <chrono>
#include <deque>
#include <future>
#include <string>
#include <unordered_map>
#include <utility>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "messenger/BriefMutex.hpp"
#include "remote_connectivity/asyncio/util/DataStruct.hpp"

namespace remote_connectivity::asyncio::util {

/// The requests that were sent and have neither been answered nor timed out. Safe for several threads.
class RequestTable {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Draws the identifier of a request; called under the table's lock.
  using IdSource = std::string (*)();

  explicit RequestTable(IdSource idSource) : _idSource(idSource) {}

  /// Enters a new request: the future of its response and its identifier. Also removes what abandon() left
  /// behind and is due by now.
  [[nodiscard]] std::pair<std::shared_future<DataStruct>, std::string> open(Time now);

  /// Completes the request and removes it; false if it is not there.
  [[nodiscard]] bool complete(const std::string& id, DataStruct&& response);

  /// Removes the request, if it is there.
  void forget(const std::string& id);

  /// Marks a request that nobody can wait for: it stays until it is answered or the time has come.
  void abandon(const std::string& id, Time until);

  /// Breaks the promise of every request, present and future.
  void breakAll();

  [[nodiscard]] std::size_t size() const;

 private:
  void sweep(Time now) KESTREL_REQUIRES(_mutex);

  const IdSource _idSource;
  mutable BriefMutex _mutex;
  std::unordered_map<std::string, std::promise<DataStruct>> _pending KESTREL_GUARDED_BY(_mutex);
  std::deque<std::pair<Time, std::string>> _abandoned KESTREL_GUARDED_BY(_mutex);  // oldest first
  bool _broken KESTREL_GUARDED_BY(_mutex) = false;
};

}  // namespace remote_connectivity::asyncio::util
