#include <cppmicroservices/PrototypeServiceFactory.h>

#include <barrier>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "FrameworkFixture.hpp"

namespace kestrel::framework {
namespace {

using cppmicroservices::Any;
using cppmicroservices::Constants::SERVICE_RANKING;
using testing::ElementsAre;

/// Makes a greeting per lookup and counts those it was told to let go of.
class GreetingFactory : public cppmicroservices::PrototypeServiceFactory {
 public:
  cppmicroservices::InterfaceMapConstPtr GetService(
      const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&) override {
    if (fails) throw std::runtime_error("out of greetings");
    return cppmicroservices::MakeInterfaceMap<Greeting>(std::make_shared<Greeting>("made"));
  }
  void UngetService(const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&,
                    const cppmicroservices::InterfaceMapConstPtr&) override {
    ++released;
  }

  bool fails = false;
  int released = 0;
};

class Registry : public FrameworkFixture {
 protected:
  static std::vector<std::string> texts(const std::string& filter = {}) {
    std::vector<std::string> result;
    for (const auto& reference : context().GetServiceReferences<Greeting>(filter)) {
      result.push_back(context().GetService(reference)->text());
    }
    return result;
  }
};

TEST_F(Registry, PrefersTheHigherRankingAndThenTheEarlierRegistration) {
  greet("first unranked");
  auto registration = greet("low", -1);
  greet("high", 10);
  greet("second unranked");
  greet("as high", 10);
  EXPECT_THAT(texts(), ElementsAre("high", "as high", "first unranked", "second unranked", "low"));
  EXPECT_EQ(findService<Greeting>()->text(), "high");
  registration.SetProperties({{SERVICE_RANKING, Any(11)}});
  EXPECT_THAT(texts(), ElementsAre("low", "high", "as high", "first unranked", "second unranked"));
}

TEST_F(Registry, SelectsServicesByTheirProperties) {
  greet("english", {{"language", Any(std::string("en"))}});
  greet("german", {{"language", Any(std::string("de"))}});
  EXPECT_THAT(texts("(Language=de)"), ElementsAre("german"));
  EXPECT_EQ(findService<Greeting>(cppmicroservices::LDAPFilter("(language=fr)")), nullptr);
  EXPECT_THROW(texts("(language=de"), std::invalid_argument);
}

TEST_F(Registry, ForgetsAnUnregisteredServiceButLeavesItsObjectToItsUsers) {
  auto registration = greet("gone");
  const auto reference = registration.GetReference();
  const auto object = findService<Greeting>();
  EXPECT_EQ(findService<Greeting>(), object) << "all share a service without a factory";
  registration.Unregister();
  EXPECT_FALSE(reference);
  EXPECT_EQ(findService<Greeting>(), nullptr);
  EXPECT_EQ(object->text(), "gone");
  EXPECT_THROW(registration.Unregister(), std::logic_error);
  EXPECT_THROW((void)context().GetServiceObjects(reference), std::invalid_argument);
}

TEST_F(Registry, GivesEachLookupAnObjectOfItsOwnInPrototypeScope) {
  const auto factory = std::make_shared<GreetingFactory>();
  auto registration = context().RegisterService<Greeting>(cppmicroservices::ToFactory(factory));
  auto first = findService<Greeting>();
  const auto second = findService<Greeting>();
  EXPECT_NE(first, second);
  first.reset();
  EXPECT_EQ(factory->released, 1);
  factory->fails = true;
  EXPECT_EQ(findService<Greeting>(), nullptr);
  registration.Unregister();
  EXPECT_GE(factory->released, 2);  // CppMicroServices also gives the null object back
  EXPECT_EQ(second->text(), "made");
}

TEST_F(Registry, RefusesEveryOperationOnceTheFrameworkHasStopped) {
  auto before = context();
  const auto reference = greet("late").GetReference();
  stop();
  EXPECT_FALSE(reference);
  const std::function<void()> operations[] = {
      [&] { (void)before.GetServiceReferences<Greeting>(); },
      [&] { (void)before.GetBundles(); },
      [&] { (void)before.InstallBundles("/nowhere.so"); },
      [&] { (void)before.RegisterService<Greeting>(std::make_shared<Greeting>("never")); },
      [] { (void)findService<Greeting>(); },
  };
  for (const auto& operation : operations) {
    EXPECT_THAT(operation, testing::ThrowsMessage<std::runtime_error>(invalidContext));
  }
}

/// Runs the action with a number on each of four threads that begin at the same moment.
template <class Action>
void onFourThreads(Action action) {
  std::barrier begin(4);
  std::vector<std::jthread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      begin.arrive_and_wait();
      action(number);
    });
  }
}

TEST_F(Registry, FindsAServiceWhileOthersComeAndGo) {
  greet("staying", 100);
  std::shared_mutex ranks;  // CppMicroServices compares rankings unlocked, so nobody looks while one changes
  onFourThreads([&ranks](int number) {
    for (int round = 0; round < 200; ++round) {
      std::shared_lock looking(ranks);
      auto passing = greet("passing", number);
      const auto found = findService<Greeting>();
      ASSERT_TRUE(found && found->text() == "staying");
      looking.unlock();
      {
        const std::lock_guard changing(ranks);
        passing.SetProperties({{SERVICE_RANKING, Any(-number)}});
      }
      looking.lock();
      passing.Unregister();
    }
  });
}

TEST_F(Registry, GivesEachThreadTheBundlesThatSeveralInstallTogether) {
  onFourThreads([](int) { EXPECT_EQ(installAndStart(bundleDirectory("greeting")).size(), 1U); });
  EXPECT_EQ(context().GetServiceReferences<Greeting>().size(), 1U);
}

TEST_F(Registry, RefusesLookupsAtWorstWhileTheFrameworkStops) {
  greet("until the end");
  onFourThreads([](int number) {
    if (number == 0) return stop();
    try {
      while (findService<Greeting>()) {
      }
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), invalidContext);
    }
  });
}

}  // namespace
}  // namespace kestrel::framework
