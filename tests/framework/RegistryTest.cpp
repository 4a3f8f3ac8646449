#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/PrototypeServiceFactory.h>

#include <thread>
#include <vector>

#include "FrameworkFixture.hpp"

namespace kestrel::framework {

/// Makes a greeting per lookup and counts those it was told to let go of.
class GreetingFactory : public cppmicroservices::PrototypeServiceFactory {
 public:
  cppmicroservices::InterfaceMapConstPtr GetService(
      const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&) override {
    return cppmicroservices::MakeInterfaceMap<Greeting>(std::make_shared<Greeting>("made"));
  }
  void UngetService(const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&,
                    const cppmicroservices::InterfaceMapConstPtr&) override {
    ++released;
  }

  int released = 0;
};

struct Registry : FrameworkFixture {};

TEST_F(Registry, PrefersTheHigherRankingAndThenTheEarlierRegistration) {
  greet("unranked");
  auto low = greet("low", -1);
  greet("high", 10);
  greet("as high", 10);
  EXPECT_EQ(findService<Greeting>()->text(), "high");
  EXPECT_EQ(findService<Greeting>(cppmicroservices::LDAPFilter("(service.ranking<=0)"))->text(), "unranked");
  low.SetProperties({{cppmicroservices::Constants::SERVICE_RANKING, cppmicroservices::Any(11)}});
  EXPECT_EQ(findService<Greeting>()->text(), "low");
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
}

TEST_F(Registry, GivesEachLookupAnObjectOfItsOwnInPrototypeScope) {
  const auto factory = std::make_shared<GreetingFactory>();
  auto registration = context().RegisterService<Greeting>(cppmicroservices::ToFactory(factory));
  auto first = findService<Greeting>();
  const auto second = findService<Greeting>();
  EXPECT_NE(first, second);
  first.reset();
  EXPECT_EQ(factory->released, 1);
  registration.Unregister();
  EXPECT_EQ(factory->released, 2);
  EXPECT_EQ(second->text(), "made");
}

TEST_F(Registry, RefusesEveryOperationOnceTheFrameworkHasStopped) {
  auto before = context();
  getFramework()->Stop();
  (void)getFramework()->WaitForStop(std::chrono::seconds(20));
  const std::function<void()> operations[] = {
      [&] { (void)before.InstallBundles("/nowhere.so"); },
      [&] { (void)before.RegisterService<Greeting>(std::make_shared<Greeting>("never")); },
      [] { (void)findService<Greeting>(); },
      [] { (void)installAndStart(bundleDirectory("greeting")); },
  };
  for (const auto& operation : operations)
    EXPECT_THAT(operation,
                testing::ThrowsMessage<std::runtime_error>("The bundle context is no longer valid"));
}

TEST_F(Registry, FindsAServiceWhileOthersComeAndGo) {
  greet("staying", 100);
  std::vector<std::jthread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([number] {
      EXPECT_EQ(installAndStart(bundleDirectory("greeting")).size(), 1U) << "several install together";
      for (int round = 0; round < 200; ++round) {
        auto passing = greet("passing", number);
        const auto found = findService<Greeting>();
        ASSERT_TRUE(found && found->text() == "staying");
        passing.Unregister();
      }
    });
  }
}

}  // namespace kestrel::framework
