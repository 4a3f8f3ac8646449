#include "remote_connectivity/asyncio/util/RequestTimeout.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "LogCapture.hpp"

namespace library_test {
namespace {

using remote_connectivity::asyncio::util::getRequestTimeout;

constexpr char variable[] = "QX_ASYNCIO_MESSENGER_REQUEST_TIMEOUT";
const std::string invalid = std::string("Invalid value for ") + variable + "_S environment variable: stoul";
const std::string outOfRange =
    std::string("Out of range value provided for ") + variable + " environment variable: stoul";

struct TimeoutCase {
  const char* name;
  const char* value;
  long seconds;
  std::string logged;
};

class RequestTimeout : public testing::TestWithParam<TimeoutCase> {
 protected:
  void TearDown() override { unsetenv(variable); }
};

TEST_P(RequestTimeout, ReadsTheEnvironment) {
  if (GetParam().value != nullptr) setenv(variable, GetParam().value, 1);
  const LogCapture log;
  errno = 7;
  EXPECT_EQ(getRequestTimeout(), std::chrono::seconds(GetParam().seconds));
  if (GetParam().logged.empty()) {
    EXPECT_EQ(errno, 7);
    EXPECT_EQ(log.count(variable), 0U);
  } else {
    EXPECT_TRUE(log.wrote("asyncio::util", Severity::error, GetParam().logged));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Values, RequestTimeout,
    testing::Values(TimeoutCase{"unset", nullptr, 20, ""}, TimeoutCase{"five", "5", 5, ""},
                    TimeoutCase{"zero", "0", 0, ""}, TimeoutCase{"digitThenLetter", "7s", 7, ""},
                    TimeoutCase{"blankAndSign", "  +9", 9, ""}, TimeoutCase{"letters", "soon", 20, invalid},
                    TimeoutCase{"empty", "", 20, invalid},
                    TimeoutCase{"thirtyDigits", "123456789012345678901234567890", 20, outOfRange}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace library_test
