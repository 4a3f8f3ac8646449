#include "kestrel/host/Host.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>

#include "FrameworkFixture.hpp"
#include "kestrel/framework/InstallAndStart.hpp"
#include "kestrel/framework/ServiceLookup.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

namespace kestrel::host {
namespace {

using framework::bundleDirectory;
using framework::findService;
using framework::getFramework;
using framework::installAndStart;
using greeting::Greeting;
using threadpool::ThreadPool;

TEST(Host, OffersAThreadPoolThatRunsWork) {
  const Host host;
  const auto pool = findService<ThreadPool>();
  ASSERT_NE(pool, nullptr);
  std::promise<void> ran;
  pool->submit([&ran] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready)
      << "waited for work submitted to the pool";
}

TEST(Host, LeavesTheThreadPoolToTheCallerWhenTold) {
  const Host host(HostOptions{.installPath = {}, .registerThreadPool = false});
  EXPECT_NE(getFramework(), nullptr);
  EXPECT_EQ(findService<ThreadPool>(), nullptr);
}

TEST(Host, StandsAlone) {
  {
    const Host host;
    EXPECT_THROW(Host(), std::logic_error);
    EXPECT_NE(findService<ThreadPool>(), nullptr) << "the first host must not suffer";
  }
  framework::setFramework(
      std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework()));
  EXPECT_THROW(Host(), std::logic_error);
  framework::setFramework(nullptr);
  EXPECT_NO_THROW(Host());
}

TEST(Host, OverridesTheInstallPathForAsLongAsItLives) {
  const auto before = framework::get_install_path();
  {
    const Host host(HostOptions{.installPath = "/opt/elsewhere"});
    EXPECT_EQ(framework::get_install_path(), u"/opt/elsewhere");
  }
  EXPECT_EQ(framework::get_install_path(), before);
}

TEST(Host, StartsTheSameBundleInOneFrameworkAfterTheOther) {
  for (int round = 0; round < 3; ++round) {
    std::shared_ptr<Greeting> greeting;
    {
      const Host host;
      ASSERT_EQ(installAndStart(bundleDirectory("greeting")).size(), 1U);
      greeting = findService<Greeting>();
      ASSERT_NE(greeting, nullptr);
      EXPECT_EQ(greeting->text(), "hello from test_greeting");
    }
    EXPECT_EQ(getFramework(), nullptr);
    EXPECT_EQ(greeting->text(), "hello from the past");
  }
}

TEST(Host, KeepsAPoolAliveForThoseWhoHoldItWhenItGoes) {
  std::shared_ptr<ThreadPool> pool;
  {
    const Host host;
    pool = findService<ThreadPool>();
  }
  std::promise<void> ran;
  pool->submit([&ran] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready)
      << "waited for work submitted after the host was gone";
}

}  // namespace
}  // namespace kestrel::host
