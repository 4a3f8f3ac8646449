#pragma once

#include <any>
#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>

namespace remote_connectivity::asyncio::util {

using ServiceConfiguration = std::unordered_map<std::string, std::any>;

/// The argument, or the environment variable's value where the argument is empty; empty if neither says
/// anything.
[[nodiscard]] inline std::string argumentOrEnvironment(std::string argument, const char* variable) {
  if (!argument.empty()) return argument;
  const char* value = secure_getenv(variable);
  return value == nullptr ? std::string() : std::string(value);
}

/// Hands the settings to a service, if there is one and there are any: services are never called without.
template <class Service>
void configureService(const std::shared_ptr<Service>& service, const ServiceConfiguration& configuration) {
  if (service && !configuration.empty()) service->configure(configuration);
}

}  // namespace remote_connectivity::asyncio::util
