#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

class ServiceReferenceBase;
namespace detail {
class FilterNode;
}

/// A search filter over properties: (name=value), with * for any text, (name=*) for presence, >=, <=, ~= and
/// the combinations (&...), (|...), (!...). An empty filter matches everything. Immutable once made, so it
/// may be shared between threads.
///
/// Numbers are compared by their values, whatever the type of the property: 5 is less than 10000000000 and at
/// least 4.9, and it does not equal 5.1 or 5x, as it does in CppMicroServices, which cuts the text off to fit
/// the property. Filters meant for both should not rely on either.
class CPPMICROSERVICES_EXPORT LDAPFilter {
 public:
  LDAPFilter() = default;

  /// Throws std::invalid_argument for a text that is not a filter.
  LDAPFilter(const std::string& text);  // NOLINT(google-explicit-constructor): filters are written as text

  /// Whether the filter holds an expression.
  explicit operator bool() const { return _root != nullptr; }

  /// Names are compared without regard to case.
  [[nodiscard]] bool Match(const ServiceReferenceBase& reference) const;
  [[nodiscard]] bool Match(const AnyMap& properties) const;

  /// The filter as text that parses to an equal filter; empty for the empty filter.
  [[nodiscard]] std::string ToString() const;
  bool operator==(const LDAPFilter& other) const;

 private:
  std::shared_ptr<const detail::FilterNode> _root;
};

CPPMICROSERVICES_EXPORT std::ostream& operator<<(std::ostream& out, const LDAPFilter& filter);

}  // namespace cppmicroservices
