#include "remote_connectivity/asyncio/util/AgentDirectoryServiceFactory.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistration.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <vector>

#include "kestrel/agentdirectory/AgentDirectoryService.hpp"
#include "kestrel/framework/Framework.hpp"
#include "kestrel/host/Host.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

using kestrel::agentdirectory::AgentDirectoryService;
using Settings = std::map<std::string, std::string>;

class RecordingDirectory : public AgentDirectoryService {
 public:
  void configure(const std::unordered_map<std::string, std::any>& configuration) override {
    if (failing) throw std::runtime_error("TokenNotFound: none");
    auto& settings = calls.emplace_back();
    for (const auto& [key, value] : configuration) settings[key] = std::any_cast<std::string>(value);
  }
  bool failing = false;
  std::vector<Settings> calls;
};

/// An environment variable for as long as this lives; no value: not set.
class Variable {
 public:
  Variable(const char* name, const char* value) : _name(name) {
    if (const char* old = std::getenv(name)) _old = old;
    set(value);
  }
  ~Variable() { set(_old ? _old->c_str() : nullptr); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  void set(const char* value) { value == nullptr ? ::unsetenv(_name) : ::setenv(_name, value, 1); }
  const char* _name;
  std::optional<std::string> _old;
};

class AgentDirectory : public testing::Test {
 protected:
  AgentDirectory() {
    kestrel::framework::getFramework()->GetBundleContext().RegisterService<AgentDirectoryService>(directory);
  }
  Variable token{"QXA_TOKEN", nullptr};
  Variable endpoint{"AD_ENDPOINT", nullptr};
  Variable streams{"DS_ENDPOINT", "http://streams"};  // never looked at
  kestrel::host::Host host;
  std::shared_ptr<RecordingDirectory> directory = std::make_shared<RecordingDirectory>();
};

struct SettingsCase {
  const char* label;
  const char* token;
  const char* endpoint;
  const char* tokenVariable;
  const char* endpointVariable;
  std::vector<Settings> expected;
  friend std::ostream& operator<<(std::ostream& out, const SettingsCase& row) { return out << row.label; }
};

class AgentDirectorySettings : public AgentDirectory, public testing::WithParamInterface<SettingsCase> {};

TEST_P(AgentDirectorySettings, ReachTheService) {
  const auto& row = GetParam();
  const Variable tokenNow("QXA_TOKEN", row.tokenVariable);
  const Variable endpointNow("AD_ENDPOINT", row.endpointVariable);
  const AgentDirectoryServiceFactory factory(row.token, row.endpoint);
  EXPECT_EQ(directory->calls, row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, AgentDirectorySettings,
    testing::Values(
        SettingsCase{"nothing", "", "", nullptr, nullptr, {}},
        SettingsCase{"emptyVariables", "", "", "", "", {}},
        SettingsCase{"tokenOnly", "t", "", nullptr, nullptr, {{{"qxaToken", "t"}}}},
        SettingsCase{"endpointOnly", "", "http://a", nullptr, nullptr, {{{"apsserviceurl", "http://a"}}}},
        SettingsCase{"environment", "", "", "vt", "va", {{{"qxaToken", "vt"}, {"apsserviceurl", "va"}}}},
        SettingsCase{"arguments", "t", "a", "vt", "va", {{{"qxaToken", "t"}, {"apsserviceurl", "a"}}}},
        SettingsCase{"mixed", "t", "", nullptr, "va", {{{"qxaToken", "t"}, {"apsserviceurl", "va"}}}}));

TEST_F(AgentDirectory, TakesNewSettingsLater) {
  AgentDirectoryServiceFactory factory("", "a");
  factory.configure("t", "");
  EXPECT_EQ(directory->calls, (std::vector<Settings>{{{"apsserviceurl", "a"}}, {{"qxaToken", "t"}}}));
}

TEST_F(AgentDirectory, ErrorsReachTheCaller) {
  directory->failing = true;
  EXPECT_THROW(AgentDirectoryServiceFactory("t", ""), std::runtime_error);
}

TEST_F(AgentDirectory, IsHeldByTheFactory) {
  const std::weak_ptr<RecordingDirectory> service = directory;
  const auto before = service.use_count();
  const AgentDirectoryServiceFactory factory("", "");
  EXPECT_GT(service.use_count(), before);
}

TEST(AgentDirectoryMissing, IsNoError) {
  EXPECT_NO_THROW(AgentDirectoryServiceFactory("t", "a")) << "without a framework";
  const kestrel::host::Host host;
  EXPECT_NO_THROW(AgentDirectoryServiceFactory("t", "a")) << "without the service";
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
