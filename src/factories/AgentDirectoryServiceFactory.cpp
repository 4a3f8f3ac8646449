#include "remote_connectivity/asyncio/util/AgentDirectoryServiceFactory.hpp"

#include <utility>

#include "factories/ServiceConfiguration.hpp"
#include "kestrel/agentdirectory/AgentDirectoryService.hpp"
#include "kestrel/framework/ServiceLookup.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::agentdirectory::ADSConfig;
using kestrel::agentdirectory::AgentDirectoryService;

namespace {

// Copies that static destruction does not take: a factory may be made while the process ends.
const std::string& tokenKey = *new const std::string(ADSConfig::QXA_TOKEN);
const std::string& endpointKey = *new const std::string(ADSConfig::APS_SERVICE_URL);

}  // namespace

AgentDirectoryServiceFactory::AgentDirectoryServiceFactory(std::string token, std::string endpoint)
    : _agentDirectoryService(kestrel::framework::findService<AgentDirectoryService>()) {
  configure(std::move(token), std::move(endpoint));
}

AgentDirectoryServiceFactory::~AgentDirectoryServiceFactory() = default;

void AgentDirectoryServiceFactory::configure(std::string token, std::string endpoint) {
  ServiceConfiguration configuration;
  token = argumentOrEnvironment(std::move(token), "QXA_TOKEN");
  if (!token.empty()) configuration[tokenKey] = token;
  endpoint = argumentOrEnvironment(std::move(endpoint), "AD_ENDPOINT");
  if (!endpoint.empty()) configuration[endpointKey] = endpoint;
  configureService(_agentDirectoryService, configuration);
}

}  // namespace remote_connectivity::asyncio::util
