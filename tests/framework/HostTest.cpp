#include "kestrel/host/Host.hpp"

#include <cppmicroservices/FrameworkFactory.h>

#include <future>

#include "FrameworkFixture.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

namespace kestrel::host {
namespace {

using framework::findService;
using threadpool::ThreadPool;

TEST(Host, OffersAThreadPoolThatOutlivesItWithThoseWhoHoldIt) {
  auto host = std::make_unique<Host>();
  const auto pool = findService<ThreadPool>();
  ASSERT_NE(pool, nullptr);
  for (const auto when : {"while the host runs", "after its end"}) {
    std::promise<void> ran;
    pool->submit([&ran] { ran.set_value(); });
    const auto status = ran.get_future().wait_for(std::chrono::seconds(20));
    ASSERT_EQ(status, std::future_status::ready) << "waited for work submitted " << when;
    host.reset();
  }
}

TEST(Host, StandsAlone) {
  using cppmicroservices::FrameworkFactory;
  {
    const Host host;
    EXPECT_THROW(Host(), std::logic_error);
    EXPECT_NE(findService<ThreadPool>(), nullptr) << "the first host must not suffer";
  }
  framework::setFramework(std::make_shared<cppmicroservices::Framework>(FrameworkFactory().NewFramework()));
  EXPECT_THROW(Host(), std::logic_error);
  framework::setFramework(nullptr);
}

TEST(Host, LeavesNothingBehindForTheNextOne) {
  const auto pathBefore = framework::get_install_path();
  for (int round = 0; round < 3; ++round) {
    auto host = std::make_unique<Host>(HostOptions{.installPath = "/opt/x", .registerThreadPool = false});
    EXPECT_EQ(framework::get_install_path(), u"/opt/x");
    EXPECT_EQ(findService<ThreadPool>(), nullptr) << "the place was to be left to the caller";
    ASSERT_EQ(framework::installAndStart(framework::bundleDirectory("greeting")).size(), 1U);
    const auto greeting = findService<Greeting>();
    EXPECT_EQ(greeting->text(), "hello from test_greeting");
    host.reset();
    EXPECT_EQ(framework::get_install_path(), pathBefore);
    EXPECT_EQ(findService<Greeting>(), nullptr);
    EXPECT_EQ(greeting->text(), "hello from the past");
  }
}

}  // namespace
}  // namespace kestrel::host
