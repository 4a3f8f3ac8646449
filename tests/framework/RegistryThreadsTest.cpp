#include <cppmicroservices/Constants.h>
#include <cppmicroservices/PrototypeServiceFactory.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

#include "FrameworkFixture.hpp"
#include "kestrel/framework/InstallAndStart.hpp"
#include "kestrel/framework/ServiceLookup.hpp"

namespace kestrel::framework {
namespace {

using cppmicroservices::Any;
using greeting::Greeting;

constexpr int rounds = 200;

class RegistryThreads : public FrameworkFixture {
 protected:
  void registerAndUnregister(int ranking) const {
    for (int round = 0; round < rounds; ++round) {
      auto registration = greet("passing", {{cppmicroservices::Constants::SERVICE_RANKING, Any(ranking)}});
      registration.SetProperties({{cppmicroservices::Constants::SERVICE_RANKING, Any(-ranking)}});
      registration.Unregister();
    }
  }
};

TEST_F(RegistryThreads, FindAServiceWhileOthersComeAndGo) {
  greet("staying", {{cppmicroservices::Constants::SERVICE_RANKING, Any(100)}});
  std::atomic<int> wrong = 0;
  std::vector<std::jthread> threads;
  for (int ranking = 1; ranking <= 2; ++ranking) {
    threads.emplace_back([this, ranking] { registerAndUnregister(ranking); });
    threads.emplace_back([&wrong] {
      for (int round = 0; round < rounds; ++round) {
        const auto found = findService<Greeting>();
        wrong += found && found->text() == "staying" ? 0 : 1;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(wrong, 0);
}

TEST_F(RegistryThreads, GetObjectsOfTheirOwnFromAPrototypeService) {
  ASSERT_EQ(installAndStart(bundleDirectory("prototype")).size(), 1U);
  std::vector<std::shared_ptr<Greeting>> found(4);
  std::barrier together(static_cast<std::ptrdiff_t>(found.size()));
  {
    std::vector<std::jthread> threads;
    for (auto& slot : found) {
      threads.emplace_back([&slot, &together] {
        together.arrive_and_wait();
        slot = findService<Greeting>();
      });
    }
  }
  for (std::size_t i = 1; i < found.size(); ++i) {
    ASSERT_NE(found[i], nullptr);
    EXPECT_NE(found[i]->text(), found[i - 1]->text());
  }
}

TEST_F(RegistryThreads, EachGetTheBundlesTheyInstallTogether) {
  std::vector<std::size_t> counts(4);
  {
    std::vector<std::jthread> threads;
    for (auto& count : counts) {
      threads.emplace_back([&count] { count = installAndStart(bundleDirectory("greeting")).size(); });
    }
  }
  EXPECT_EQ(counts, std::vector<std::size_t>(4, 1));
  EXPECT_EQ(context().GetServiceReferences<Greeting>().size(), 1U);
}

TEST_F(RegistryThreads, MeetAnInvalidContextAtWorstWhileTheFrameworkStops) {
  greet("until the end");
  std::barrier together(3);
  std::vector<std::jthread> threads;
  std::atomic<int> strange = 0;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      together.arrive_and_wait();
      try {
        while (findService<Greeting>()) {
        }
      } catch (const std::runtime_error& error) {
        strange += std::string(error.what()) == "The bundle context is no longer valid" ? 0 : 1;
      }
    });
  }
  together.arrive_and_wait();
  stop();
  threads.clear();
  EXPECT_EQ(strange, 0);
}

}  // namespace
}  // namespace kestrel::framework
