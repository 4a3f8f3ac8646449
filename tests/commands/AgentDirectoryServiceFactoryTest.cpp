#include "remote_connectivity/asyncio/util/AgentDirectoryServiceFactory.hpp"

#include <cppmicroservices/BundleContext.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <vector>

#include "kestrel/agentdirectory/AgentDirectoryService.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/host/Host.hpp"

using namespace remote_connectivity::asyncio::util;
using kestrel::agentdirectory::AgentDirectoryService;
using Settings = std::map<std::string, std::string>;

struct RecordingDirectory : AgentDirectoryService {
  void configure(const std::unordered_map<std::string, std::any>& configuration) override {
    if (failing) throw std::runtime_error("TokenNotFound: none");
    auto& settings = calls.emplace_back();
    for (const auto& [key, value] : configuration) settings[key] = std::any_cast<std::string>(value);
  }
  bool failing = false;
  std::vector<Settings> calls;
};

void setVariable(const char* name, const char* value) {
  value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
}

TEST(AgentDirectory, GetsWhatIsGivenElseWhatTheEnvironmentSaysAndNothingEmpty) {
  const kestrel::host::Host host;
  const auto directory = std::make_shared<RecordingDirectory>();
  kestrel::framework::getFramework()->GetBundleContext().RegisterService<AgentDirectoryService>(directory);
  const struct {
    const char *token, *endpoint, *tokenVariable, *endpointVariable;
    std::vector<Settings> expected;
  } rows[] = {{"", "", nullptr, nullptr, {}},
              {"", "", "", "", {}},
              {"t", "", nullptr, nullptr, {{{"qxaToken", "t"}}}},
              {"", "a", nullptr, nullptr, {{{"apsserviceurl", "a"}}}},
              {"", "", "vt", "va", {{{"qxaToken", "vt"}, {"apsserviceurl", "va"}}}},
              {"t", "a", "vt", "va", {{{"qxaToken", "t"}, {"apsserviceurl", "a"}}}},
              {"t", "", nullptr, "va", {{{"qxaToken", "t"}, {"apsserviceurl", "va"}}}}};
  for (const auto& row : rows) {
    directory->calls.clear();
    setVariable("QXA_TOKEN", row.tokenVariable);
    setVariable("AD_ENDPOINT", row.endpointVariable);
    AgentDirectoryServiceFactory factory(row.token, row.endpoint);
    EXPECT_EQ(directory->calls, row.expected) << "row " << &row - rows;
  }
  directory->failing = true;
  EXPECT_THROW(AgentDirectoryServiceFactory("t", ""), std::runtime_error) << "errors reach the caller";
}

TEST(AgentDirectoryMissing, IsNoError) {
  EXPECT_NO_THROW(AgentDirectoryServiceFactory("t", "a")) << "without a framework";
  const kestrel::host::Host host;
  EXPECT_NO_THROW(AgentDirectoryServiceFactory("t", "a")) << "without the service";
}
