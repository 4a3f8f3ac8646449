#include "kestrel/diagnostics/Logger.hpp"

#include <gmock/gmock.h>

#include <future>

#include "kestrel/diagnostics/FunctionTrace.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

using namespace kestrel::diagnostics;
using testing::ElementsAre;
using testing::Pair;

constexpr SeverityMask errorOnly = noSeverities | Severity::error;

/// A channel with everything on, and its records.
struct LoggerTest : testing::Test {
  LoggerTest() { setSeverities("test::logger", allSeverities); }

  void traced(bool fails) const {
    const FunctionTrace trace(_logger, "f()");
    if (fails) throw std::runtime_error("failed");
  }

  const Logger _logger{"test::logger"};
  std::vector<std::pair<Severity, std::string>> _records;
  const RecordObserver _log{
      [this](const Record& record) { _records.emplace_back(record.severity, record.text); }};
};

struct Unprintable {
  mutable int attempts = 0;
};
std::ostream& operator<<(std::ostream&, const Unprintable& part) {
  ++part.attempts;
  throw std::runtime_error("cannot be printed");
}

TEST_F(LoggerTest, FormatsNothingWhileTheSeverityIsOffAndDropsWhatCannotBeFormatted) {
  const Unprintable part;
  setSeverities("test::logger", errorOnly);
  _logger.log(Severity::trace, part);
  EXPECT_EQ(part.attempts, 0);
  _logger.log(Severity::error, part);
  _logger.log(Severity::error, "before ", static_cast<const char*>(nullptr), std::string("and after "), 7);
  EXPECT_THAT(_records, ElementsAre(Pair(Severity::error, "before and after 7")));
}

TEST_F(LoggerTest, TracesAFunctionAndMarksItsExitOnlyIfAnExceptionLeavesIt) {
  EXPECT_THROW(traced(true), std::runtime_error);
  try {
    const std::shared_ptr<const void> guard(nullptr, [this](auto) { traced(false); });
    throw std::runtime_error("during whose unwinding a function returns");
  } catch (const std::runtime_error&) {
  }
  const auto line = [](const char* text) { return Pair(Severity::functionTrace, text); };
  EXPECT_THAT(_records, ElementsAre(line("f()"), line("f() [throw]"), line("f()"), line("f()")));
}

TEST_F(LoggerTest, LetsAnObserverLogAndFailWithoutHarmToOthers) {
  const RecordObserver failing([this](const Record&) {
    _logger.log(Severity::error, "from within");
    throw std::runtime_error("observer failed");
  });
  _logger.log(Severity::warning, "from outside");
  _logger.log(Severity::warning, "once more");
  EXPECT_THAT(_records, ElementsAre(testing::_, Pair(Severity::warning, "once more")));
}

TEST_F(LoggerTest, EndsAnObserverAfterItsCallsOnOtherThreads) {
  std::promise<void> entered, release;
  auto observer = std::make_unique<RecordObserver>([&](const Record&) {
    entered.set_value();
    release.get_future().wait();
  });
  const auto logging = std::async(std::launch::async, [&] { _logger.log(Severity::error, "slow"); });
  entered.get_future().wait();
  auto destroyed = std::async(std::launch::async, [&] { observer.reset(); });
  EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  release.set_value();
}

TEST(SeveritySettings, HoldPerChannelAndOfTheStarForTheOthersExistingOrNot) {
  const Logger own("test::own"), other("test::other");
  setSeverities("test::own", noSeverities | Severity::trace);
  setSeverities("*", errorOnly);
  EXPECT_TRUE(own.enabled(Severity::trace) && !own.enabled(Severity::error));
  EXPECT_TRUE(other.enabled(Severity::error) && !other.enabled(Severity::warning));
  EXPECT_EQ(severities("test::later"), errorOnly);
  setSeverities("*", defaultSeverities);
}
