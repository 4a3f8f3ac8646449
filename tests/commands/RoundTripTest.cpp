#include <gtest/gtest.h>

#include "ArrayText.hpp"
#include "Parsers.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

using kestreldata::Array;

struct RoundTripCase {
  const char* parser;
  std::function<Array(CommandUtil&)> build;
  const char* expected;
  friend std::ostream& operator<<(std::ostream& out, const RoundTripCase& row) { return out << row.parser; }
};

class RoundTrip : public testing::TestWithParam<RoundTripCase> {};

TEST_P(RoundTrip, GivesTheValuesBackHereAndThroughTheEncodingThatTravels) {
  CommandUtil commands(nullptr);
  const auto built = GetParam().build(commands);
  const auto bytes = commands.kdaHelper()->kdaToProtobufBytes(built);
  const auto travelled = commands.kdaHelper()->kdaFromProtobuf(bytes.data(), bytes.size());
  EXPECT_EQ(parsed(commands, GetParam().parser, built), GetParam().expected);
  EXPECT_EQ(parsed(commands, GetParam().parser, travelled), GetParam().expected);
  EXPECT_EQ(textOf(travelled), textOf(built));
}

constexpr auto ok = RemoteAsyncIOError::NoError;

INSTANTIATE_TEST_SUITE_P(
    All, RoundTrip,
    testing::Values(
        RoundTripCase{"parseRegisterClientCmd",
                      [](auto& c) { return c.registerClientCmd(row({text("me")})); },
                      R"("registerAsyncIOClient", "me", 0)"},
        RoundTripCase{"parseUnregisterClientCmd", [](auto& c) { return c.unregisterClientCmd(0); }, "0, 0"},
        RoundTripCase{"parseCreateHostCmd", [](auto& c) { return c.createHostCmd(1, 2); }, "1, 2, 0"},
        RoundTripCase{"parseTerminateHostCmd", [](auto& c) { return c.createHostCmd(1, 2); },
                      "default, default, 5"},
        RoundTripCase{"parseTerminateHostCmd", [](auto& c) { return c.terminateHostCmd(3, 1ull << 63); },
                      "3, 9223372036854775808, 0"},
        RoundTripCase{"parseGetActiveHostsCmd", [](auto& c) { return c.getActiveHostsCmd(4); }, "4, 0"},
        RoundTripCase{"parseTerminateChannelCmd",
                      [](auto& c) {
                        return c.terminateChannelCmd(column({text("term"), number(3)}), 4);
                      },
                      "3, 4, 0"},
        RoundTripCase{"getResponseError",
                      [](auto& c) { return c.createErrorResponse(RemoteAsyncIOError{13}, "x", text("y")); },
                      "13"},
        RoundTripCase{"getResponseError", [](auto& c) { return c.createNoErrorResponse(); }, "0"},
        RoundTripCase{"parseRegisterClientResponse",
                      [](auto& c) { return c.registerClientResponse("a", "b", 7); }, R"("a", "b", 7, 0)"},
        RoundTripCase{"parseRegisterClientResponse",
                      [](auto& c) { return c.registerClientResponse(RemoteAsyncIOError{9}); },
                      R"("", "", default, 9)"},
        RoundTripCase{"parseCreateHostResponse", [](auto& c) { return c.createHostResponse(5, 6, ok); },
                      "5, 6, 0"},
        RoundTripCase{"parseGetActiveHostsResponse",
                      [](auto& c) {
                        return c.getActiveHostsResponse({5, 6}, ok);
                      },
                      "[5, 6], 0"},
        RoundTripCase{"parseCreateChannelResponse",
                      [](auto& c) {
                        return c.createChannelResponse(row({byte(1), text("x")}), "a", "");
                      },
                      R"(cell 1x2 {uint8 1x1 1, string 1x1 "x"}, "a", "", 0)"},
        RoundTripCase{"parseTerminateChannelResponse",
                      [](auto& c) { return c.terminateChannelResponse(chars(u"bye"), ok); },
                      R"(char 1x3 "bye", 0)"},
        RoundTripCase{"parseTerminateChannelResponse",
                      [](auto& c) { return c.terminateChannelResponse(real(1), RemoteAsyncIOError{10}); },
                      "double 0x0, 10"}));

}  // namespace
}  // namespace remote_connectivity::asyncio::util
