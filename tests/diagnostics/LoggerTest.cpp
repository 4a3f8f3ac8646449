#include "kestrel/diagnostics/Logger.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <locale>
#include <ostream>
#include <stdexcept>

#include "RecordLog.hpp"
#include "kestrel/diagnostics/SeveritySettings.hpp"

namespace kestrel::diagnostics {
namespace {

using testing::ElementsAre;
using testing::Pair;

struct CountsItsPrinting {
  mutable int times = 0;
};
std::ostream& operator<<(std::ostream& out, const CountsItsPrinting& self) {
  ++self.times;
  return out << "printed";
}

struct FailsToPrint {};
std::ostream& operator<<(std::ostream&, const FailsToPrint&) {
  throw std::runtime_error("cannot be printed");
}

class GroupsDigits : public std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(Logger, HasWarningsAndErrorsOnAtFirst) {
  const Logger logger("test::fresh");
  EXPECT_TRUE(logger.enabled(Severity::error));
  EXPECT_TRUE(logger.enabled(Severity::warning));
  EXPECT_FALSE(logger.enabled(Severity::setup));
  EXPECT_FALSE(logger.enabled(Severity::trace));
  EXPECT_FALSE(logger.enabled(Severity::functionTrace));
}

TEST(Logger, FormatsNothingWhileTheSeverityIsOff) {
  const RecordLog log("test::formatting");
  const Logger logger("test::formatting");
  const CountsItsPrinting part;
  setSeverities("test::formatting", noSeverities);
  logger.log(Severity::trace, part);
  EXPECT_EQ(part.times, 0);
  setSeverities("test::formatting", noSeverities | Severity::trace);
  logger.log(Severity::trace, part);
  logger.log(Severity::error, part);
  EXPECT_EQ(part.times, 1);
  EXPECT_THAT(log.entries(), ElementsAre(Pair(Severity::trace, "printed")));
}

TEST(Logger, JoinsThePartsAsTheyPrint) {
  const RecordLog log("test::parts");
  const Logger logger("test::parts");
  const char* const missing = nullptr;
  logger.log(Severity::error, "text ", std::string("string "), std::string_view("view"));
  logger.log(Severity::error, "number ", 1234567, ' ', 0.5);
  logger.log(Severity::error, "before ", missing, "after");
  EXPECT_THAT(log.entries(), ElementsAre(Pair(Severity::error, "text string view"),
                                         Pair(Severity::error, "number 1234567 0.5"),
                                         Pair(Severity::error, "before after")));
}

TEST(Logger, DoesNotFollowTheHostsLocale) {
  const RecordLog log("test::locale");
  const auto before = std::locale::global(std::locale(std::locale::classic(), new GroupsDigits));
  Logger("test::locale").log(Severity::error, 1234567);
  std::locale::global(before);
  EXPECT_THAT(log.entries(), ElementsAre(Pair(Severity::error, "1234567")));
}

TEST(Logger, DropsARecordThatCannotBeFormatted) {
  const RecordLog log("test::failing");
  EXPECT_NO_THROW(Logger("test::failing").log(Severity::error, FailsToPrint{}));
  EXPECT_THAT(log.entries(), ElementsAre());
}

}  // namespace
}  // namespace kestrel::diagnostics
