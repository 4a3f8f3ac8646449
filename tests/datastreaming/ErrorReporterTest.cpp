#include "transports/shared/ErrorReporter.hpp"

#include <gtest/gtest.h>

#include <atomic>

#include "Waiting.hpp"
#include "transports/shared/ErrorOutlet.hpp"

namespace kestrel::streams {
namespace {

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

TEST(ErrorOutlet, TellsTheStreamInStatisticsAndCallbackAlike) {
  auto context = std::make_shared<StreamContext>("news", std::make_shared<ErrorReporter>());
  auto outlet = std::make_shared<ErrorOutlet>(context);
  std::promise<std::string> told;
  outlet->setCallback([&](const std::exception& error) { told.set_value(error.what()); });
  outlet->report("something failed");
  EXPECT_EQ(context->counters.snapshot("news").lastError, "stream 'news': something failed");
  auto text = told.get_future();
  ASSERT_TRUE(ready(text, "the error callback"));
  EXPECT_EQ(text.get(), "stream 'news': something failed");
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

}  // namespace
}  // namespace kestrel::streams
