#pragma once

#include <memory>
#include <string>

#include "remote_connectivity/asyncio/util/Export.hpp"

namespace kestrel::agentdirectory {
class AgentDirectoryService;
}

namespace remote_connectivity::asyncio::util {

/// Configures the agent directory service of the host's service framework, which must be registered already.
/// Holds on to the service as long as it lives. Several threads may call configure() at once if the service
/// can stand it.
class REMOTE_CONNECTIVITY_EXPORT AgentDirectoryServiceFactory {
 public:
  /// Finds the service and configures it. Without a service nothing is configured, and no error reported.
  /// Throws what the framework or the service throws.
  AgentDirectoryServiceFactory(std::string token, std::string endpoint);
  ~AgentDirectoryServiceFactory();
  AgentDirectoryServiceFactory(const AgentDirectoryServiceFactory&) = delete;
  AgentDirectoryServiceFactory& operator=(const AgentDirectoryServiceFactory&) = delete;

  /// Hands the service a token and an endpoint; an empty one is taken from the environment variable
  /// "QXA_TOKEN" or "AD_ENDPOINT". Where both stay empty the service is not called.
  void configure(std::string token, std::string endpoint);

 private:
  std::shared_ptr<kestrel::agentdirectory::AgentDirectoryService>
      _agentDirectoryService;  // set by the constructor only
};

}  // namespace remote_connectivity::asyncio::util
