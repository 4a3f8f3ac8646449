#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ContextData.hpp"
#include "ServiceRecord.hpp"
#include "cppmicroservices/LDAPFilter.h"

namespace cppmicroservices::detail {

/// The services of one framework. Safe for several threads at once; no foreign code runs under its lock.
class ServiceRegistry {
 public:
  using RecordPointer = std::shared_ptr<ServiceRecord>;

  /// Throws std::runtime_error if the context has been invalidated by then.
  RecordPointer add(const ContextData& context, const Bundle& owner, const InterfaceMapConstPtr& service,
                    const ServiceProperties& properties);

  /// Whether the service was still registered.
  bool remove(const RecordPointer& record);

  /// Takes out what the bundle has registered. Its context is to be invalidated before, so that nothing is
  /// added meanwhile.
  void removeAllOf(const Bundle& owner);

  /// The preferred one first. An empty interface identifier stands for all services.
  [[nodiscard]] std::vector<RecordPointer> find(const std::string& interfaceId,
                                                const LDAPFilter& filter) const;

 private:
  struct Entry {
    RecordPointer record;
    std::shared_ptr<BundleData> owner;
  };

  mutable std::mutex _mutex;
  // Guarded by _mutex:
  std::vector<Entry> _entries;
  long _nextId = 1;
};

}  // namespace cppmicroservices::detail
