#include "kestrel/host/Host.hpp"

#include <future>

#include "FrameworkFixture.hpp"
#include "kestrel/threadpool/ThreadPool.hpp"

namespace kestrel::host {

using framework::findService;
using threadpool::ThreadPool;

TEST(Host, StandsAloneAndLeavesItsThreadPoolToThoseWhoHoldIt) {
  std::shared_ptr<ThreadPool> pool;
  {
    const Host host;
    EXPECT_THROW(Host(), std::logic_error);
    pool = findService<ThreadPool>();
  }
  ASSERT_NE(pool, nullptr) << "the first host must not suffer";
  std::promise<void> ran;
  pool->submit([&ran] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
}

TEST(Host, LeavesNothingBehindForTheNextOne) {
  const auto pathBefore = framework::get_install_path();
  for (int round = 0; round < 2; ++round) {
    auto host = std::make_unique<Host>(HostOptions{.installPath = "/opt/x", .registerThreadPool = false});
    EXPECT_EQ(framework::get_install_path(), u"/opt/x");
    EXPECT_EQ(findService<ThreadPool>(), nullptr) << "the place was to be left to the caller";
    ASSERT_EQ(framework::installAndStart(framework::bundleDirectory("greeting")).size(), 1U);
    const auto greeting = findService<Greeting>();
    host.reset();
    EXPECT_EQ(framework::get_install_path(), pathBefore);
    EXPECT_EQ(findService<Greeting>(), nullptr);
    EXPECT_EQ(greeting->text(), "hello from the past");
  }
}

}  // namespace kestrel::host
