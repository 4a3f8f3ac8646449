#include "cppmicroservices/LDAPFilter.h"

#include <ostream>

#include "FilterParser.hpp"
#include "ServiceRecord.hpp"
#include "TextCase.hpp"
#include "cppmicroservices/ServiceReferenceBase.h"

namespace cppmicroservices {

namespace {

bool matchIgnoringCase(const detail::FilterNode::Pointer& root, const ServiceProperties& properties) {
  return !root || root->matches([&properties](const std::string& name) {
    return detail::findProperty(properties, name);
  });
}

}  // namespace

LDAPFilter::LDAPFilter(const std::string& text) : _root(detail::parseFilter(text)) {}

bool LDAPFilter::Match(const ServiceReferenceBase& reference) const {
  return reference._record && matchIgnoringCase(_root, *reference._record->properties());
}

bool LDAPFilter::Match(const AnyMap& properties) const {
  return matchIgnoringCase(_root, properties);
}

std::string LDAPFilter::ToString() const {
  return _root ? _root->toString() : std::string();
}

bool LDAPFilter::operator==(const LDAPFilter& other) const {
  return ToString() == other.ToString();
}

std::ostream& operator<<(std::ostream& out, const LDAPFilter& filter) {
  return out << filter.ToString();
}

}  // namespace cppmicroservices
