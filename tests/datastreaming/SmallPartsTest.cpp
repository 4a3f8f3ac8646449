#include <gtest/gtest.h>

#include <cctype>
#include <kestrel/callbacks/CallbackGate.hpp>
#include <kestrel/diagnostics/RecordObserver.hpp>
#include <kestrel/diagnostics/SeveritySettings.hpp>

#include "Waiting.hpp"
#include "transports/memory/MemoryQueue.hpp"
#include "transports/shared/ErrorOutlet.hpp"
#include "transports/shared/ProducerStamper.hpp"

namespace kestrel::streams {
namespace {

TEST(CallbackGate, ClosingWaitsForTheCallbackInFlight) {
  callbacks::CallbackGate gate;
  Door inside, leave;
  bool left = false;  // unguarded, so that it may be read only if close() waited
  auto running = std::async(std::launch::async, [&] {
    gate.run([&] {
      inside.open();
      leave.pass("leave to go on");
      left = true;
    });
  });
  inside.pass("the callback to run");
  auto closing = std::async(std::launch::async, [&] { gate.close(); });
  EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  leave.open();
  closing.get();
  EXPECT_TRUE(left);
  EXPECT_FALSE(gate.run([] {}));
}

TEST(ErrorReporter, DropsTasksPastItsBound) {
  Door busy, go;
  int ran = 0;
  {
    ErrorReporter reporter(3);
    reporter.post([&] {
      busy.open();
      go.pass("the tasks to be queued");
    });
    busy.pass("the first task");
    for (int i = 0; i < 10; ++i) reporter.post([&] { ++ran; });
    go.open();
  }  // which waits for the tasks that were taken
  EXPECT_EQ(ran, 3);
}

TEST(ErrorReporter, MayBeDestroyedByItsOwnTask) {
  auto reporter = std::make_shared<ErrorReporter>();
  Door gone;
  reporter->post([&] {
    reporter.reset();
    gone.open();
  });
  gone.pass("the reporter to be destroyed on its own thread");
}

TEST(ErrorOutlet, CallbackThatThrowsDoesNotEndTheReporting) {
  auto context = std::make_shared<StreamContext>("", std::make_shared<ErrorReporter>());
  auto outlet = std::make_shared<ErrorOutlet>(context);
  Door second;
  outlet->setCallback([&](const std::exception& error) {
    if (std::string(error.what()).find("two") != std::string::npos) second.open();
    throw std::runtime_error("from the callback");
  });
  outlet->report("one");
  outlet->report("two");
  second.pass("the second report");
  outlet->close();
}

TEST(ErrorOutlet, LogsWhatNoCallbackTakesAndNothingElse) {
  std::vector<std::string> lines;
  const diagnostics::RecordObserver log([&](const diagnostics::Record& record) {
    if (record.channel == "kestrel::datastreaming") lines.emplace_back(record.text);
  });
  diagnostics::setStandardErrorOutput(false);
  {
    const auto context = std::make_shared<StreamContext>("s", std::make_shared<ErrorReporter>());
    ErrorOutlet unheard(context), taken(context), failing(context), closed(context);
    taken.setCallback([](const std::exception&) {});
    failing.setCallback([](const std::exception&) { throw std::runtime_error("no"); });
    closed.close();
    for (auto* const outlet : {&unheard, &taken, &failing, &closed}) outlet->report("lost");
  }  // the reporter ends when everything is reported
  diagnostics::setStandardErrorOutput(true);
  EXPECT_EQ(lines,
            (std::vector<std::string>{"stream 's': lost", "stream 's': lost (an error callback failed: no)",
                                      "stream 's': lost"}));
}

TEST(MemoryQueue, CountsBytesUntilTheEntriesAreGoneNotUntilTheyAreTaken) {
  MemoryQueue queue(1000);
  queue.push(std::make_shared<MemoryMessage>(Stamp{}, nullptr, 0, datastreaming::AttributeMap{}), 300);
  std::vector<MemoryQueue::Entry> batch;
  ASSERT_TRUE(queue.take(batch, {}));
  EXPECT_EQ(queue.budget().used(), 300U);
  batch.clear();
  EXPECT_EQ(queue.budget().used(), 0U);
}

/// The fates of a producer's messages: plain ones 'm', pieces 'p', last pieces 'l', faulty ones 'f', of which
/// capitals are refused. For an accepted one: how many refused before it it tells of, 'x' if it abandons.
std::string fatesOf(const std::string& messages) {
  ProducerStamper stamper(7);
  std::string fates;
  for (const char letter : messages) {
    const int kind = std::tolower(letter);
    const Stamp stamp = stamper.next({.chunk = kind == 'p' || kind == 'l', .last = kind != 'p', .fault = {}});
    if (stamper.broken(stamp)) {
      stamper.refused(stamp);
      fates += "broken ";
    } else if (kind != letter) {
      fates += stamper.refused(stamp, kind == 'f') ? "breaks " : "refused ";
    } else {
      stamper.accepted(stamp);
      fates += std::to_string(stamp.refusedBefore) + (stamp.abandons ? "x " : " ");
    }
  }
  return fates;
}

TEST(ProducerStamper, RefusalIsToldOnceAndBreaksTheRestOfItsPayloadButNothingElse) {
  EXPECT_EQ(fatesOf("mMMmm"), "0 refused refused 2 0 ");
  EXPECT_EQ(fatesOf("pPpmmlp"), "0 breaks broken 2x 0 broken 1 ");
  EXPECT_EQ(fatesOf("Plm"), "refused broken 2 ") << "nothing of the payload went out, so none is abandoned";
  EXPECT_EQ(fatesOf("pFlm"), "0 breaks broken 2x ") << "the faulty one may have been meant as a piece";
}

}  // namespace
}  // namespace kestrel::streams
