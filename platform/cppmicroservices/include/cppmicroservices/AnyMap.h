#pragma once

#include <string>
#include <unordered_map>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

/// Named values of any type.
class AnyMap : public std::unordered_map<std::string, Any> {
 public:
  using std::unordered_map<std::string, Any>::unordered_map;
  AnyMap(const std::unordered_map<std::string, Any>& values)  // NOLINT(google-explicit-constructor)
      : std::unordered_map<std::string, Any>(values) {}
};

}  // namespace cppmicroservices
