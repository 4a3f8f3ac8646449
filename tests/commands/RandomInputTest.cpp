#include "RandomArrays.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "Parsers.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

const std::set<std::string> ofTexts{"throws NonAsciiCharInInputDataException",
                                    "throws MissingStringException", "throws InvalidArrayIndexException"};
const std::set<std::string> ofNumbers{"throws InvalidArrayTypeException",
                                      "throws InvalidArrayIndexException"};

/// What a parser may let through. All others read texts.
const std::map<std::string, std::set<std::string>> allowedExceptions{
    {"getError", {}},
    {"getResponseError", {}},
    {"parseGetActiveHostsResponse", {}},
    {"parseTerminateChannelResponse", {}},
    {"parseCreateHostResponse", ofNumbers},
};

bool succeeded(const std::string& result) {
  return result == "0" || result.ends_with(", 0") || result.starts_with("0, ");
}

// Any other exception escapes the parser's wrapper and fails the test.
TEST(RandomInput, MakesNoParserFailOtherThanItMay) {
  constexpr int rounds = 5000;
  CommandUtil commands(nullptr);
  RandomArrays arrays(20240501);
  std::map<std::string, int> successes;
  for (int i = 0; i < rounds; ++i) {
    const auto array = arrays.next();
    for (const auto& parser : allParsers()) {
      const auto result = parser.parse(commands, array);
      successes[parser.name] += succeeded(result);
      if (!result.starts_with("throws")) continue;
      const auto found = allowedExceptions.find(parser.name);
      const auto& allowed = found == allowedExceptions.end() ? ofTexts : found->second;
      ASSERT_THAT(allowed, testing::Contains(result)) << parser.name;
    }
  }
  for (const auto& parser : allParsers()) {
    EXPECT_GT(successes[parser.name], rounds / 500) << parser.name << " hardly got past its first checks";
  }
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
