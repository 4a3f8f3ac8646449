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

using namespace kestrel::diagnostics;
using testing::ElementsAre;
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
  EXPECT_THAT(written({{0, "lost 1"}, {5, "lost 22"}, {9, "lost 3"}, {10, "lost 4"}, {19, "lost 5"}}),
              ElementsAre("lost 1", "lost 3 x2", "lost 4", "lost 5 x1"));
  EXPECT_THAT(written({{0, "stream 'a1'"}, {0, "stream 'a2'"}, {0, "(7) of 8"}, {0, "(9) of 10"}}),
              ElementsAre("stream 'a1'", "stream 'a2'", "(7) of 8", "(9) of 10 x1"));
  std::vector<std::pair<int, std::string>> many{{0, "first"}};
  for (int i = 0; i < 64; ++i) many.emplace_back(0, "other" + std::to_string(i));
  many.emplace_back(0, "first");
  EXPECT_EQ(std::ranges::count(written(many), "first"), 2) << "the oldest of more than 64 is forgotten";
}

TEST(Process, ReadsSeveritiesFromItsEnvironmentAndTellsAtItsEndHowOftenAFailureWasRepeated) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // starts the program anew
  setenv("KESTREL_LOG", "test::repeated=error,trace;x=lots", 1);
  const auto logRepeatedly = [] {
    const Logger logger("test::repeated");
    for (int i = 0; i < 3; ++i) logger.log(Severity::error, "failed: ", i);
    for (int i = 0; i < 2; ++i) logger.log(Severity::trace, "step ", i);
    Logger("test::another").log(Severity::error, "failed: ", 9);
    std::exit(0);
  };
  EXPECT_EXIT(logRepeatedly(), testing::ExitedWithCode(0),
              "KESTREL_LOG: entry ignored, .* got \"x=lots\"\n"
              ".*failed: 0\n.*step 0\n.*step 1\n.*another failed: 9\n"
              ".*Z error test::repeated failed: 2 [(]repeated 2 times[)]\n");
  unsetenv("KESTREL_LOG");
}

TEST(BoostLogCore, HandsRecordsToTheSinksOfAHostThatAsksForThem) {
  std::ostringstream lines;
  const auto sink = boost::log::add_console_log(lines);
  sink->set_filter(expressions::attr<std::string>("Channel") == "test::host" &&
                   expressions::attr<unsigned>("Severity") == 512U && expressions::has_attr("TimeStamp"));
  for (const bool on : {false, true, false}) {
    setBoostLogOutput(on);
    Logger("test::host").log(Severity::error, on ? "for the host" : "not for the host");
  }
  boost::log::core::get()->remove_sink(sink);
  EXPECT_EQ(lines.str(), "for the host\n");
}

TEST(FatalReport, IsLoggedAndHandledAndEndsTheProcessWhateverTheHandlerDoes) {
  const auto report = [] {
    setFatalReportHandler([](auto text, auto source) {
      std::cerr << '<' << text << '|' << source << '>';
      fatalReport("again", "b");
    });
    fatalReport("Item is corrupt.", "Test");
  };
  EXPECT_EXIT(report(), testing::KilledBySignal(SIGABRT),
              " error kestrel::diagnostics Test: Item is corrupt.\n"
              ".*Fatal error. Test: Item is corrupt.\n<Item is corrupt.[|]Test>");
}
