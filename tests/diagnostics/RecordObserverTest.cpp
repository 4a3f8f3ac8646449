#include "kestrel/diagnostics/RecordObserver.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "RecordLog.hpp"
#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Pair;

const Logger& logger() {
  static const Logger channel("test::observed");
  return channel;
}

TEST(RecordObserver, MayLogItselfWithoutEnd) {
  int calls = 0;
  RecordObserver observer([&](const Record&) {
    ++calls;
    logger().log(Severity::error, "from within");
  });
  logger().log(Severity::error, "from outside");
  logger().log(Severity::error, "once more");
  EXPECT_EQ(calls, 2);
}

TEST(RecordObserver, ThatThrowsHarmsNobody) {
  RecordObserver failing([](const Record&) { throw std::runtime_error("observer failed"); });
  const RecordLog log("test::observed");
  EXPECT_NO_THROW(logger().log(Severity::warning, "a record"));
  EXPECT_THAT(log.entries(), ElementsAre(Pair(Severity::warning, "a record")));
}

TEST(RecordObserver, MayBeDestroyedByItsOwnCall) {
  int calls = 0;
  std::unique_ptr<RecordObserver> observer;
  observer = std::make_unique<RecordObserver>([&](const Record&) {
    observer.reset();
    ++calls;
  });
  logger().log(Severity::error, "the last one");
  logger().log(Severity::error, "unseen");
  EXPECT_EQ(calls, 1);
}

TEST(RecordObserver, WaitsAtItsEndForCallsOnOtherThreads) {
  std::promise<void> entered, release;
  auto observer =
      std::make_unique<RecordObserver>([&, released = release.get_future().share()](const Record&) {
        entered.set_value();
        released.wait();
      });
  std::jthread logging([] { logger().log(Severity::error, "slowly observed"); });
  entered.get_future().wait();
  auto destroyed = std::async(std::launch::async, [&] { observer.reset(); });
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  release.set_value();
  EXPECT_EQ(destroyed.wait_for(20s), std::future_status::ready);
}

TEST(RecordObserver, IsNotCalledAfterItsEndWhileThreadsLog) {
  setStandardErrorOutput(false);
  std::atomic<int> current{0};
  std::atomic<bool> calledTooLate{false};
  {
    std::jthread logging([](std::stop_token stop) {
      while (!stop.stop_requested()) logger().log(Severity::error, "busy");
    });
    for (; current < 100; ++current) {
      std::promise<void> called;
      std::once_flag once;
      RecordObserver observer([&, mine = current.load()](const Record&) {
        if (mine != current) calledTooLate = true;
        std::call_once(once, [&] { called.set_value(); });
      });
      ASSERT_EQ(called.get_future().wait_for(20s), std::future_status::ready) << "waited for a call";
    }
  }
  setStandardErrorOutput(true);
  EXPECT_FALSE(calledTooLate);
}

}  // namespace
}  // namespace kestrel::diagnostics
