#include "transports/shared/CallbackGate.hpp"

#include <gtest/gtest.h>

#include <atomic>

#include "Waiting.hpp"

namespace kestrel::streams {
namespace {

TEST(CallbackGate, ClosingWaitsForTheCallbackInFlight) {
  CallbackGate gate;
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

TEST(CallbackGate, ClosingInsideTheCallbackDoesNotWait) {
  CallbackGate gate;
  EXPECT_TRUE(gate.run([&] { gate.close(); }));
  EXPECT_TRUE(gate.closed());
}

TEST(CallbackGate, CallbackThatThrowsHasLeft) {
  CallbackGate gate;
  EXPECT_THROW(gate.run([] { throw 1; }), int);
  gate.close();
  EXPECT_TRUE(gate.closed());
}

}  // namespace
}  // namespace kestrel::streams
