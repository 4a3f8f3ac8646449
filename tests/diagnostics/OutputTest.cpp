#include <gmock/gmock.h>

#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/utility/setup/console.hpp>
#include <csignal>

#include "kestrel/diagnostics/FatalReport.hpp"
#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {
namespace {

using testing::KilledBySignal;
namespace expressions = boost::log::expressions;

TEST(StandardErrorOutput, IsOneLineARecordWithTimeSeverityChannelAndTextUnlessTurnedOff) {
  const Logger logger("test::line");
  testing::internal::CaptureStderr();
  logger.log(Severity::warning, "first\nsecond\r\t\x1b[1m \xc3\xa9");
  setStandardErrorOutput(false);
  logger.log(Severity::error, "unseen");
  setStandardErrorOutput(true);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex("[0-9-]+T[0-9:.]+Z warning test::line "
                                    "first\\\\nsecond\\\\r\\\\t\\\\x1b\\[1m \xc3\xa9\n"));
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
