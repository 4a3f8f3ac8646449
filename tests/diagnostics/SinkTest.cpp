#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>
#include <cstdlib>
#include <thread>

#include "kestrel/diagnostics/Logger.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(StandardErrorOutput, WritesOneLineARecordWithTimeSeverityChannelAndText) {
  CaptureStderr();
  Logger("test::line").log(Severity::warning, "first\nsecond\r\t\x1b[1m \xc3\xa9");
  EXPECT_THAT(GetCapturedStderr(),
              testing::MatchesRegex("[0-9-]+T[0-9:.]+Z warning test::line "
                                    "first\\\\nsecond\\\\r\\\\t\\\\x1b\\[1m \xc3\xa9\n"));
}

TEST(StandardErrorOutput, CanBeTurnedOff) {
  CaptureStderr();
  setStandardErrorOutput(false);
  Logger("test::line").log(Severity::error, "unseen");
  setStandardErrorOutput(true);
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST(StandardErrorOutput, KeepsTheLinesOfSeveralThreadsApart) {
  CaptureStderr();
  {
    std::vector<std::jthread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'}) {
      threads.emplace_back([letter] {
        for (int i = 0; i < 50; ++i) Logger("test::apart").log(Severity::error, std::string(60, letter));
      });
    }
  }
  std::istringstream lines(GetCapturedStderr());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line, EndsWith(" error test::apart " + std::string(60, line.back())));
  }
  EXPECT_EQ(count, 200);
}

class HostsBackend : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
 public:
  void consume(const boost::log::record_view& record) {
    const auto channel = boost::log::extract<std::string>("Channel", record);
    const auto severity = boost::log::extract<unsigned>("Severity", record);
    const auto text = boost::log::extract<std::string>("Message", record);
    const auto& values = record.attribute_values();
    if (!channel || !severity || !text || !values.count("TimeStamp") || !values.count("ThreadID")) return;
    _lines.push_back(*channel + " " + std::to_string(*severity) + " " + *text);
  }

  std::vector<std::string> _lines;
};

TEST(BoostLogCore, HandsRecordsToTheSinksOfTheHost) {
  const auto backend = boost::make_shared<HostsBackend>();
  const auto sink = boost::make_shared<boost::log::sinks::synchronous_sink<HostsBackend>>(backend);
  boost::log::core::get()->add_sink(sink);
  Logger("test::host").log(Severity::error, "for the host");
  boost::log::core::get()->remove_sink(sink);
  EXPECT_THAT(backend->_lines, testing::ElementsAre("test::host 512 for the host"));
}

/// Logs before main() and after the static objects made later than itself are gone.
struct LogsWithTheProcess {
  LogsWithTheProcess() { _logger.log(Severity::error, "before main"); }
  ~LogsWithTheProcess() { _logger.log(Severity::error, "at exit"); }
  Logger _logger{"test::static"};
} const logsWithTheProcess;

TEST(Logger, WorksDuringStaticInitialisationAndLateAtExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "before main.*\n(.*\n)*.*at exit\n");
}

}  // namespace
}  // namespace kestrel::diagnostics
