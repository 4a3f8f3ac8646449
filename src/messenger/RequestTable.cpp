#include "messenger/RequestTable.hpp"

namespace remote_connectivity::asyncio::util {

std::pair<std::shared_future<DataStruct>, std::string> RequestTable::open(Time now) {
  std::promise<DataStruct> promise;
  auto future = promise.get_future().share();
  const kestrel::callbacks::MutexLock lock(_mutex);
  sweep(now);
  auto id = _idSource();
  if (!_broken) _pending.emplace(id, std::move(promise));
  return {std::move(future), std::move(id)};
}

bool RequestTable::complete(const std::string& id, DataStruct&& response) {
  decltype(_pending)::node_type completed;  // freed after the lock is gone
  const kestrel::callbacks::MutexLock lock(_mutex);
  completed = _pending.extract(id);
  if (!completed) return false;
  completed.mapped().set_value(std::move(response));
  return true;
}

void RequestTable::forget(const std::string& id) {
  const kestrel::callbacks::MutexLock lock(_mutex);
  _pending.erase(id);
}

void RequestTable::abandon(const std::string& id, Time until) {
  const kestrel::callbacks::MutexLock lock(_mutex);
  _abandoned.emplace_back(until, id);
}

void RequestTable::breakAll() {
  decltype(_pending) broken;  // destroyed after the lock is gone: that is when waiters wake
  const kestrel::callbacks::MutexLock lock(_mutex);
  _broken = true;
  broken.swap(_pending);
}

std::size_t RequestTable::size() const {
  const kestrel::callbacks::MutexLock lock(_mutex);
  return _pending.size();
}

void RequestTable::sweep(Time now) {
  while (!_abandoned.empty() && _abandoned.front().first <= now) {
    _pending.erase(_abandoned.front().second);
    _abandoned.pop_front();
  }
}

}  // namespace remote_connectivity::asyncio::util
