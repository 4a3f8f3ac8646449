#include <cppmicroservices/Constants.h>
#include <cppmicroservices/PrototypeServiceFactory.h>
#include <cppmicroservices/ServiceObjects.h>
#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "FrameworkFixture.hpp"
#include "kestrel/framework/ServiceLookup.hpp"

namespace kestrel::framework {
namespace {

using cppmicroservices::Any;
using cppmicroservices::ServiceProperties;
using greeting::FixedGreeting;
using greeting::Greeting;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string invalidContext = "The bundle context is no longer valid";

template <class Action>
void expectInvalidContext(Action action) {
  try {
    action();
    ADD_FAILURE() << "expected an exception";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), invalidContext);
  }
}

/// Makes a greeting per request of the framework, and counts both ways.
template <class Base>
class CountingFactory : public Base {
 public:
  cppmicroservices::InterfaceMapConstPtr GetService(
      const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&) override {
    ++made;
    return cppmicroservices::MakeInterfaceMap<Greeting>(std::make_shared<FixedGreeting>("made"));
  }
  void UngetService(const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&,
                    const cppmicroservices::InterfaceMapConstPtr&) override {
    ++released;
  }

  int made = 0;
  int released = 0;
};

class Registry : public FrameworkFixture {
 protected:
  std::vector<std::string> texts(const std::string& filter = {}) {
    std::vector<std::string> result;
    for (const auto& reference : context().GetServiceReferences<Greeting>(filter)) {
      result.push_back(context().GetService(reference)->text());
    }
    return result;
  }
};

TEST_F(Registry, PrefersTheHigherRankingAndThenTheEarlierRegistration) {
  using cppmicroservices::Constants::SERVICE_RANKING;
  greet("first unranked");
  greet("low", {{SERVICE_RANKING, Any(-1)}});
  greet("high", {{SERVICE_RANKING, Any(10)}});
  greet("second unranked");
  greet("as high", {{SERVICE_RANKING, Any(10)}});

  EXPECT_THAT(texts(), ElementsAre("high", "as high", "first unranked", "second unranked", "low"));
  EXPECT_EQ(findService<Greeting>()->text(), "high");
  EXPECT_EQ(context().GetService(context().GetServiceReference<Greeting>())->text(), "high");
}

TEST_F(Registry, ReordersServicesWhenARankingChanges) {
  greet("one");
  auto registration = greet("two");
  registration.SetProperties(ServiceProperties{{cppmicroservices::Constants::SERVICE_RANKING, Any(1)}});
  EXPECT_THAT(texts(), ElementsAre("two", "one"));
}

TEST_F(Registry, SelectsServicesByTheirProperties) {
  greet("english", {{"language", Any(std::string("en"))}});
  greet("german", {{"language", Any(std::string("de"))}});
  EXPECT_THAT(texts("(Language=de)"), ElementsAre("german"));
  EXPECT_EQ(findService<Greeting>(cppmicroservices::LDAPFilter("(language=e*)"))->text(), "english");
  EXPECT_EQ(findService<Greeting>(cppmicroservices::LDAPFilter("(language=fr)")), nullptr);
  EXPECT_THROW(texts("(language=de"), std::invalid_argument);
}

TEST_F(Registry, ListsAServiceUnderEachOfItsInterfaces) {
  class Both : public FixedGreeting, public std::enable_shared_from_this<Both> {
   public:
    using FixedGreeting::FixedGreeting;
  };
  static_cast<void>(context().RegisterService<Greeting, FixedGreeting>(std::make_shared<Both>("both")));
  EXPECT_EQ(context().GetServiceReferences<FixedGreeting>().size(), 1U);
  EXPECT_EQ(findService<FixedGreeting>()->text(), "both");
  EXPECT_EQ(findService<Greeting>()->text(), "both");
}

TEST_F(Registry, ForgetsAnUnregisteredServiceButLeavesItsObjectToItsUsers) {
  auto registration = greet("gone");
  const auto reference = registration.GetReference();
  const auto object = findService<Greeting>();

  registration.Unregister();

  EXPECT_FALSE(reference);
  EXPECT_EQ(findService<Greeting>(), nullptr);
  EXPECT_EQ(object->text(), "gone");
  EXPECT_THROW(registration.Unregister(), std::logic_error);
  EXPECT_THROW(static_cast<void>(context().GetServiceObjects(reference)), std::invalid_argument);
}

TEST_F(Registry, RefusesAServiceWithoutAnObject) {
  EXPECT_THROW(static_cast<void>(context().RegisterService<Greeting>(std::shared_ptr<FixedGreeting>())),
               std::exception);
}

TEST_F(Registry, GivesABundleOneObjectOfAServiceOfBundleScope) {
  const auto factory = std::make_shared<CountingFactory<cppmicroservices::ServiceFactory>>();
  static_cast<void>(context().RegisterService<Greeting>(cppmicroservices::ToFactory(factory)));
  auto first = findService<Greeting>();
  auto second = findService<Greeting>();
  EXPECT_EQ(first.get(), second.get());
  EXPECT_EQ(factory->made, 1);

  first.reset();
  EXPECT_EQ(factory->released, 0);
  second.reset();
  EXPECT_EQ(factory->released, 1);
}

TEST_F(Registry, GivesEachLookupAnObjectOfItsOwnInPrototypeScope) {
  const auto factory = std::make_shared<CountingFactory<cppmicroservices::PrototypeServiceFactory>>();
  auto registration = context().RegisterService<Greeting>(cppmicroservices::ToFactory(factory));
  auto first = findService<Greeting>();
  const auto second = findService<Greeting>();
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(factory->made, 2);

  first.reset();
  EXPECT_EQ(factory->released, 1);
  registration.Unregister();
  EXPECT_EQ(factory->released, 2);
  EXPECT_EQ(second->text(), "made");
}

TEST_F(Registry, GivesNoServiceWhenItsFactoryFails) {
  class Failing : public CountingFactory<cppmicroservices::PrototypeServiceFactory> {
   public:
    cppmicroservices::InterfaceMapConstPtr GetService(
        const cppmicroservices::Bundle&, const cppmicroservices::ServiceRegistrationBase&) override {
      throw std::runtime_error("out of greetings");
    }
  };
  static_cast<void>(
      context().RegisterService<Greeting>(cppmicroservices::ToFactory(std::make_shared<Failing>())));
  EXPECT_EQ(findService<Greeting>(), nullptr);
}

TEST_F(Registry, RefusesEveryOperationOnceTheFrameworkHasStopped) {
  auto before = context();
  const auto reference = greet("late").GetReference();
  const auto object = findService<Greeting>();
  stop();

  EXPECT_FALSE(reference);
  EXPECT_EQ(object->text(), "late");
  expectInvalidContext([&] { static_cast<void>(before.GetServiceReferences<Greeting>()); });
  expectInvalidContext([&] { static_cast<void>(before.GetBundles()); });
  expectInvalidContext([&] { static_cast<void>(before.InstallBundles("/nowhere.so")); });
  expectInvalidContext([&] { static_cast<void>(findService<Greeting>()); });
  expectInvalidContext(
      [&] { static_cast<void>(before.RegisterService<Greeting>(std::make_shared<FixedGreeting>("never"))); });
}

TEST(ServiceLookup, FindsNothingInAHostWithoutAFramework) {
  ASSERT_EQ(getFramework(), nullptr);
  EXPECT_EQ(findService<Greeting>(), nullptr);
}

TEST(BundleContext, IsInvalidWhenItBelongsToNoBundle) {
  cppmicroservices::BundleContext context;
  EXPECT_FALSE(context);
  expectInvalidContext([&] { static_cast<void>(context.GetServiceReferences<Greeting>()); });
  expectInvalidContext(
      [&] { static_cast<void>(context.GetServiceObjects(cppmicroservices::ServiceReference<Greeting>())); });
}

}  // namespace
}  // namespace kestrel::framework
