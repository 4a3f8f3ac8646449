#include "ServiceRegistry.hpp"

#include <algorithm>
#include <tuple>

#include "BundleData.hpp"

namespace cppmicroservices::detail {

ServiceRegistry::RecordPointer ServiceRegistry::add(const ContextData& context, const Bundle& owner,
                                                    const InterfaceMapConstPtr& service,
                                                    const ServiceProperties& properties) {
  long id = 0;
  {
    const std::lock_guard lock(_mutex);
    id = _nextId++;
  }
  auto record = std::make_shared<ServiceRecord>(id, owner, service, properties);
  const std::lock_guard lock(_mutex);
  context.check();
  _entries.push_back({record, BundleData::of(owner)});
  return record;
}

bool ServiceRegistry::remove(const RecordPointer& record) {
  {
    const std::lock_guard lock(_mutex);
    std::erase_if(_entries, [&record](const Entry& entry) { return entry.record == record; });
  }
  return record->retire();
}

void ServiceRegistry::removeAllOf(const Bundle& owner) {
  std::vector<RecordPointer> removed;
  {
    const std::lock_guard lock(_mutex);
    std::erase_if(_entries, [&](const Entry& entry) {
      const bool matches = entry.owner == BundleData::of(owner);
      if (matches) {
        removed.push_back(entry.record);
      }
      return matches;
    });
  }
  for (const auto& record : removed) {
    record->retire();
  }
}

std::vector<ServiceRegistry::RecordPointer> ServiceRegistry::find(const std::string& interfaceId,
                                                                  const LDAPFilter& filter) const {
  std::vector<RecordPointer> candidates;
  {
    const std::lock_guard lock(_mutex);
    for (const auto& entry : _entries) {
      if (interfaceId.empty() || std::ranges::binary_search(entry.record->interfaces(), interfaceId)) {
        candidates.push_back(entry.record);
      }
    }
  }
  std::vector<std::tuple<long, long, RecordPointer>> ranked;
  for (auto& record : candidates) {
    if (record->isRegistered() && filter.Match(ServiceReferenceBase(record, interfaceId))) {
      ranked.emplace_back(-static_cast<long>(record->ranking()), record->id(), std::move(record));
    }
  }
  std::ranges::sort(ranked);
  std::vector<RecordPointer> found;
  found.reserve(ranked.size());
  for (auto& [order, id, record] : ranked) {
    found.push_back(std::move(record));
  }
  return found;
}

}  // namespace cppmicroservices::detail
