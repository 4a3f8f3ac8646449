#include <gtest/gtest.h>

#include <kestrel/callbacks/CallbackGate.hpp>

#include <atomic>

#include "Waiting.hpp"
#include "transports/memory/BufferPool.hpp"
#include "transports/memory/MemoryQueue.hpp"
#include "transports/shared/ByteBudget.hpp"
#include "transports/shared/ErrorOutlet.hpp"

namespace kestrel::streams {
namespace {

TEST(ByteBudget, KeepsTheReserveForTheProducerOfThePayloadInProgress) {
  ByteBudget budget(1000, 200);
  const ByteBudget::Charge others(budget, 900);
  budget.favour(7);
  EXPECT_TRUE(budget.hasRoom(100, 8));
  EXPECT_FALSE(budget.hasRoom(101, 8));
  EXPECT_TRUE(budget.hasRoom(300, 7));
  EXPECT_FALSE(budget.hasRoom(301, 7));
}

TEST(ByteBudget, GivesAChargeBackOnceHoweverOftenItWasMoved) {
  ByteBudget budget(1000);
  {
    ByteBudget::Charge first(budget, 300);
    ByteBudget::Charge second(std::move(first));
    ByteBudget::Charge third;
    third = std::move(second);
    EXPECT_EQ(budget.used(), 300U);
  }
  EXPECT_EQ(budget.used(), 0U);
}

TEST(CallbackGate, ClosingWaitsForTheCallbackInFlight) {
  callbacks::CallbackGate gate;
  Door inside, leave;
  std::atomic<bool> left = false;
  std::thread runner([&] {
    gate.run([&] {
      inside.open();
      leave.pass("leave to go on");
      left = true;
    });
  });
  inside.pass("the callback to run");
  auto closing = std::async(std::launch::async, [&] {
    gate.close();
    return left.load();
  });
  EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  leave.open();
  EXPECT_TRUE(closing.get());
  runner.join();
  EXPECT_FALSE(gate.run([] {}));
}

TEST(ErrorReporter, DropsTasksPastItsBoundAndGoesOn) {
  ErrorReporter reporter(3);
  Door busy, go, done;
  std::atomic<int> ran = 0;
  reporter.post([&] {
    busy.open();
    go.pass("the tasks to be queued");
  });
  busy.pass("the first task");
  for (int i = 0; i < 10; ++i) {
    reporter.post([&] {
      if (++ran == 3) done.open();
    });
  }
  go.open();
  done.pass("three tasks to run");
  Door later;
  reporter.post([&] { later.open(); });
  later.pass("a task after the flood");
  EXPECT_EQ(ran, 3);
}

TEST(ErrorReporter, MayBeDestroyedByItsOwnTask) {
  auto reporter = std::make_shared<ErrorReporter>();
  Door gone;
  auto* raw = reporter.get();
  raw->post([held = std::move(reporter), &gone]() mutable {
    held.reset();
    gone.open();
  });
  gone.pass("the reporter to be destroyed on its own thread");
}

TEST(ErrorOutlet, CallbackThatThrowsDoesNotEndTheReporting) {
  auto context = std::make_shared<StreamContext>("", std::make_shared<ErrorReporter>());
  auto outlet = std::make_shared<ErrorOutlet>(context);
  Door second;
  std::atomic<int> calls = 0;
  outlet->setCallback([&](const std::exception&) {
    if (++calls == 2) second.open();
    throw std::runtime_error("from the callback");
  });
  outlet->report("one");
  outlet->report("two");
  second.pass("the second report");
  outlet->close();
}

std::shared_ptr<const MemoryMessage> message(std::uint64_t sequence) {
  const std::uint8_t byte = 1;
  return std::make_shared<MemoryMessage>(Stamp{.producer = 1, .sequence = sequence}, &byte, 1,
                                         datastreaming::AttributeMap{});
}

TEST(MemoryQueue, CountsBytesUntilTheEntriesAreGoneNotUntilTheyAreTaken) {
  MemoryQueue queue(1000);
  queue.push(message(1), 300);
  std::vector<MemoryQueue::Entry> batch;
  ASSERT_TRUE(queue.take(batch, {}));
  EXPECT_EQ(queue.budget().used(), 300U);
  batch.clear();
  EXPECT_EQ(queue.budget().used(), 0U);
}

TEST(BufferPool, ReusesTheBlockUsedLastAndKeepsNoMoreThanItsBound) {
  BufferPool pool(2 << 20);
  std::uint8_t* const block = pool.acquire(1'000'000);
  pool.release(block, 1'000'000);
  EXPECT_EQ(pool.kept(), std::size_t{1} << 20);
  EXPECT_EQ(pool.acquire(900'000), block);
  pool.release(block, 900'000);
  std::uint8_t* const large = pool.acquire(3 << 20);
  pool.release(large, 3 << 20);
  EXPECT_EQ(pool.kept(), std::size_t{1} << 20) << "a block beyond the bound is not kept";
}

}  // namespace
}  // namespace kestrel::streams
