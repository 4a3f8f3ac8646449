#include "kestrel/diagnostics/SeveritySettings.hpp"

#include <gmock/gmock.h>

#include <cstdlib>

#include "kestrel/diagnostics/Logger.hpp"

namespace kestrel::diagnostics {
namespace {

constexpr SeverityMask errorOnly = noSeverities | Severity::error;

TEST(SeveritySettings, HoldPerChannelAndOfTheStarForTheOthersExistingOrNot) {
  const Logger own("test::own"), other("test::other");
  EXPECT_EQ(severities("test::other"), defaultSeverities);
  setSeverities("test::own", noSeverities | Severity::trace);
  setSeverities("*", errorOnly);
  EXPECT_TRUE(own.enabled(Severity::trace) && !own.enabled(Severity::error));
  EXPECT_TRUE(other.enabled(Severity::error) && !other.enabled(Severity::warning));
  EXPECT_EQ(severities("test::later"), errorOnly);
  setSeverities("*", defaultSeverities);
}

struct TextCase {
  std::string text;
  SeverityMask expected;  // of the channel "a::b"
  std::vector<std::string> ignored = {};
};

const TextCase textCases[] = {
    {"", errorOnly},
    {"a::b=trace,setup,function,warning", 4 + 8 + 32 + 256},
    {"a::b=all", 4 + 8 + 32 + 256 + 512},
    {"a::b=none", 0},
    {"a::c=all", errorOnly},
    {"*=warning", errorOnly},
    {"a::b=all;a::b=trace", 4},
    {" ; a::b = trace , setup ;; ", 4 + 8},
    {"a::b=loud;a::c=all", errorOnly, {"a::b=loud"}},
    {"a::b=trace,loud", errorOnly, {"a::b=trace,loud"}},
    {"a::b=", errorOnly, {"a::b="}},
    {"a::b", errorOnly, {"a::b"}},
    {"=all;a::b=trace", 4, {"=all"}},
};

class SeverityText : public testing::TestWithParam<TextCase> {};

TEST_P(SeverityText, IsReadEntryByEntry) {
  setSeverities("a::b", errorOnly);
  EXPECT_EQ(applySeverityText(GetParam().text), GetParam().ignored) << GetParam().text;
  EXPECT_EQ(severities("a::b"), GetParam().expected) << GetParam().text;
  setSeverities("*", defaultSeverities);
}

INSTANTIATE_TEST_SUITE_P(Texts, SeverityText, testing::ValuesIn(textCases));

TEST(SeverityEnvironment, IsReadAtTheFirstUseAndItsMistakesAreNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // starts the program anew
  setenv("KESTREL_LOG", "*=error;asyncio::util=trace,setup;x=lots", 1);
  EXPECT_EXIT(std::exit(severities("*") == 512 && severities("asyncio::util") == 12 ? 0 : 1),
              testing::ExitedWithCode(0), "KESTREL_LOG: entry ignored, .* got \"x=lots\"\n");
  unsetenv("KESTREL_LOG");
}

}  // namespace
}  // namespace kestrel::diagnostics
