#pragma once

#include <cppmicroservices/ServiceInterface.h>

#include <any>
#include <string>
#include <unordered_map>

namespace kestrel::agentdirectory {

/// Keys of the service's configuration map; every value is a std::string.
struct ADSConfig {
  inline static const std::string QXA_TOKEN = "qxaToken";
  inline static const std::string APS_SERVICE_URL = "apsserviceurl";
  inline static const std::string MESSAGE_FORMAT = "messageformat";
};

/// Codes that begin the text of an error of the service.
struct ADSErrorCodes {
  inline static const std::string TOKEN_NOT_FOUND = "TokenNotFound";
};

/// The platform's directory of agents. A host registers an implementation; this library only configures it.
class AgentDirectoryService {
 public:
  virtual ~AgentDirectoryService() = default;

  /// Takes settings over. May be called again at any time, from any thread; absent keys keep their values.
  virtual void configure(const std::unordered_map<std::string, std::any>& configuration) = 0;
};

}  // namespace kestrel::agentdirectory

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(kestrel::agentdirectory::AgentDirectoryService,
                                           "AgentDirectoryService")
