#include "kestrel/diagnostics/SeveritySettings.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "kestrel/diagnostics/Logger.hpp"

namespace kestrel::diagnostics {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr SeverityMask errorOnly = noSeverities | Severity::error;

/// Gives "*" its first setting back, which all tests of the process share.
class SeveritySettings : public testing::Test {
 protected:
  void TearDown() override { setSeverities("*", defaultSeverities); }
};

TEST_F(SeveritySettings, ReachLoggersThatExistAlready) {
  const Logger first("test::existing"), second("test::existing"), other("test::other");
  setSeverities("test::existing", allSeverities);
  EXPECT_TRUE(first.enabled(Severity::trace));
  EXPECT_TRUE(second.enabled(Severity::trace));
  EXPECT_FALSE(other.enabled(Severity::trace));
}

TEST_F(SeveritySettings, OfTheStarHoldForChannelsWithoutTheirOwn) {
  const Logger existing("test::star::existing");
  setSeverities("test::star::own", noSeverities | Severity::setup);
  setSeverities("*", errorOnly);
  EXPECT_EQ(severities("test::star::existing"), errorOnly);
  EXPECT_FALSE(existing.enabled(Severity::warning));
  EXPECT_FALSE(Logger("test::star::later").enabled(Severity::warning));
  EXPECT_EQ(severities("test::star::own"), noSeverities | Severity::setup);
}

struct TextCase {
  const char* name;
  const char* text;
  SeverityMask expected;  // of the channel "a::b"
  std::vector<std::string> ignored;
};

class SeverityTextTest : public SeveritySettings, public testing::WithParamInterface<TextCase> {};

TEST_P(SeverityTextTest, IsReadEntryByEntry) {
  setSeverities("a::b", errorOnly);
  EXPECT_EQ(applySeverityText(GetParam().text), GetParam().ignored);
  EXPECT_EQ(severities("a::b"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, SeverityTextTest,
    testing::Values(TextCase{"Empty", "", errorOnly, {}}, TextCase{"OneSeverity", "a::b=trace", 4, {}},
                    TextCase{"SeveralSeverities", "a::b=trace,setup,function,warning", 4 + 8 + 32 + 256, {}},
                    TextCase{"All", "a::b=all", 4 + 8 + 32 + 256 + 512, {}},
                    TextCase{"None", "a::b=none", 0, {}}, TextCase{"OtherChannel", "a::c=all", errorOnly, {}},
                    TextCase{"StarDoesNotOverride", "*=all", errorOnly, {}},
                    TextCase{"LastEntryHolds", "a::b=all;a::b=trace", 4, {}},
                    TextCase{"BlanksAndEmptyEntries", " ; a::b = trace , setup ;; ", 4 + 8, {}},
                    TextCase{"UnknownSeverity", "a::b=loud;a::c=all", errorOnly, {"a::b=loud"}},
                    TextCase{"OneOfSeveralUnknown", "a::b=trace,loud", errorOnly, {"a::b=trace,loud"}},
                    TextCase{"NoSeverity", "a::b=", errorOnly, {"a::b="}},
                    TextCase{"NoEqualsSign", "a::b", errorOnly, {"a::b"}},
                    TextCase{"NoChannel", "=all;a::b=trace", 4, {"=all"}}),
    [](const auto& tested) { return tested.param.name; });

/// Prints what a fresh process has read from its environment.
[[noreturn]] void reportSettings() {
  std::fprintf(stderr, "<star %u, asyncio %u, other %u>", severities("*"), severities("asyncio::util"),
               severities("other"));
  std::exit(0);
}

TEST(SeverityEnvironment, IsReadAtTheFirstUseAndItsMistakesAreNamedOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // starts the program anew
  ::setenv("KESTREL_LOG", "*=error;asyncio::util=trace,setup;x=lots", 1);
  EXPECT_EXIT(reportSettings(), testing::ExitedWithCode(0),
              "KESTREL_LOG: entry ignored, .* got \"x=lots\"\n(.*\n)*<star 512, asyncio 12, other 512>");
  ::unsetenv("KESTREL_LOG");
}

}  // namespace
}  // namespace kestrel::diagnostics
