#include "kestrel/diagnostics/Logger.hpp"

#include <gmock/gmock.h>

#include <future>

#include "kestrel/diagnostics/FunctionTrace.hpp"
#include "kestrel/diagnostics/RecordObserver.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Pair;

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

class GroupsDigits : public std::numpunct<char> {
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(LoggerTest, FormatsNothingWhileTheSeverityIsOffAndDropsWhatCannotBeFormatted) {
  const Unprintable part;
  setSeverities("test::logger", noSeverities | Severity::error);
  _logger.log(Severity::trace, part);
  EXPECT_EQ(part.attempts, 0);
  _logger.log(Severity::error, part);
  EXPECT_EQ(part.attempts, 1);
  EXPECT_THAT(_records, ElementsAre());
}

TEST_F(LoggerTest, JoinsThePartsWhateverTheHostsLocale) {
  const auto before = std::locale::global(std::locale(std::locale::classic(), new GroupsDigits));
  const char* const missing = nullptr;
  _logger.log(Severity::error, "before ", missing, std::string("string "), std::string_view("view"));
  _logger.log(Severity::trace, "number ", 1234567, ' ', 0.5);
  std::locale::global(before);
  EXPECT_THAT(_records, ElementsAre(Pair(Severity::error, "before string view"),
                                    Pair(Severity::trace, "number 1234567 0.5")));
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
  EXPECT_THAT(_records,
              ElementsAre(Pair(Severity::warning, "from outside"), Pair(Severity::warning, "once more")));
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
  EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
  release.set_value();
  EXPECT_EQ(destroyed.wait_for(20s), std::future_status::ready);
}

}  // namespace
}  // namespace kestrel::diagnostics
