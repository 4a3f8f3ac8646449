#include <gmock/gmock.h>

#include <algorithm>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/utility/setup/console.hpp>
#include <csignal>

#include "RepeatFilter.hpp"
#include "kestrel/diagnostics/FatalReport.hpp"
#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {
namespace {

using testing::KilledBySignal;
namespace expressions = boost::log::expressions;

TEST(StandardErrorOutput, IsOneLineARecordWithTimeSeverityChannelAndTextUnlessTurnedOff) {
  static int run = 0;
  const Logger logger("test::line" + std::to_string(++run));
  testing::internal::CaptureStderr();
  logger.log(Severity::warning, "first\nsecond\r\t\x1b[1m \xc3\xa9");
  setStandardErrorOutput(false);
  logger.log(Severity::error, "unseen");
  setStandardErrorOutput(true);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex("[0-9-]+T[0-9:.]+Z warning test::line[0-9]+ "
                                    "first\\\\nsecond\\\\r\\\\t\\\\x1b\\[1m \xc3\xa9\n"));
}

/// What a log says of these warnings of one channel, which come a number of seconds after its beginning.
std::vector<std::string> written(const std::vector<std::pair<int, std::string>>& warnings) {
  RepeatFilter filter;
  std::vector<std::string> lines;
  const auto add = [&](const std::vector<RepeatFilter::Repeated>& all) {
    for (const auto& each : all) lines.push_back(each.text + " x" + std::to_string(each.times));
  };
  for (const auto& [second, text] : warnings) {
    std::vector<RepeatFilter::Repeated> ended;
    const RepeatFilter::Clock::time_point now{std::chrono::seconds(second)};
    const bool isNew = filter.admits({"channel", Severity::warning, text}, now, ended);
    add(ended);
    if (isNew) lines.push_back(text);
  }
  add(filter.takeAll());
  return lines;
}

TEST(RepeatFilter, CountsForTenSecondsWhatDiffersInFreeStandingNumbersOnly) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(
      written({{0, "lost 1"}, {5, "lost 22"}, {9, "lost 3"}, {10, "lost 4"}, {19, "lost 5"}, {21, "x"}}),
      (Lines{"lost 1", "lost 3 x2", "lost 4", "lost 5 x1", "x"}));
  EXPECT_EQ(
      written(
          {{0, "stream 'a1'"}, {0, "stream 'a2'"}, {0, "(7) of 8"}, {0, "stream 'a1'"}, {0, "(9) of 10"}}),
      (Lines{"stream 'a1'", "stream 'a2'", "(7) of 8", "stream 'a1' x1", "(9) of 10 x1"}));
  std::vector<std::pair<int, std::string>> many{{0, "first"}, {0, "first"}};
  for (int i = 0; i < 64; ++i) many.emplace_back(0, "other" + std::to_string(i));
  many.emplace_back(0, "first");
  const auto lines = written(many);
  EXPECT_EQ(std::ranges::count(lines, "first"), 2) << "the oldest of more than 64 is forgotten";
  EXPECT_EQ(std::ranges::count(lines, "first x1"), 1);
}

TEST(StandardErrorOutput, CountsRepeatedFailuresAndTellsAtTheEndHowManyButWritesEveryOtherLine) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto logRepeatedly = [] {
    const Logger logger("test::repeated"), another("test::another");
    setSeverities("test::repeated", allSeverities);
    for (int i = 0; i < 5; ++i) {
      logger.log(Severity::error, "failed: ", i);
      logger.log(Severity::trace, "step ", i);
    }
    another.log(Severity::error, "failed: ", 9);
    std::exit(0);
  };
  EXPECT_EXIT(logRepeatedly(), testing::ExitedWithCode(0),
              "failed: 0\n.*step 0\n.*step 1\n.*step 2\n.*step 3\n.*step 4\n.*another failed: 9\n"
              ".*Z error test::repeated failed: 4 [(]repeated 4 times[)]\n");
}

TEST(BoostLogCore, HandsRecordsToTheSinksOfAHostThatAsksForThem) {
  std::ostringstream lines;
  const auto sink = boost::log::add_console_log(lines);
  sink->set_formatter(expressions::stream << expressions::attr<std::string>("Channel") << ' '
                                          << expressions::attr<unsigned>("Severity") << ' '
                                          << expressions::smessage);
  sink->set_filter(expressions::has_attr("TimeStamp") && expressions::has_attr("ThreadID"));
  for (const bool on : {false, true, false}) {
    setBoostLogOutput(on);
    Logger("test::host").log(Severity::error, on ? "for the host" : "not for the host");
  }
  boost::log::core::get()->remove_sink(sink);
  EXPECT_EQ(lines.str(), "test::host 512 for the host\n");
}

/// Logs before main() and after the static objects made later than itself are gone.
struct LogsWithTheProcess {
  LogsWithTheProcess() { _logger.log(Severity::error, "before main"); }
  ~LogsWithTheProcess() { _logger.log(Severity::error, "at exit"); }
  Logger _logger{"test::static"};
} const logsWithTheProcess;

TEST(Logger, WorksDuringStaticInitialisationAndLateAtExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setBoostLogOutput(true);  // in the child too: it runs this case from its beginning
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "before main.*\n(.*\n)*.*at exit\n");
  setBoostLogOutput(false);
}

/// Reports a fatal error with that handler installed.
void reportWith(FatalReportHandler handler) {
  setFatalReportHandler(std::move(handler));
  fatalReport("Item is corrupt.", "Test");
}

TEST(FatalReport, IsLoggedAndHandledAndEndsTheProcessWhateverTheHandlerDoes) {
  EXPECT_EXIT(reportWith({}), KilledBySignal(SIGABRT),
              " error kestrel::diagnostics Test: Item is corrupt.\n.*Fatal error. Test: Item is corrupt.\n");
  EXPECT_EXIT(reportWith([](auto text, auto source) { std::cerr << '<' << text << '|' << source << '>'; }),
              KilledBySignal(SIGABRT), "<Item is corrupt.[|]Test>");
  EXPECT_EXIT(reportWith([](auto, auto) { throw std::runtime_error("no"); }), KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(reportWith([](auto, auto) { fatalReport("again", "b"); }), KilledBySignal(SIGABRT),
              "Test: Item");
}

}  // namespace
}  // namespace kestrel::diagnostics
