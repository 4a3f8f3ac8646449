#include "Commands.hpp"

using namespace remote_connectivity::asyncio::util;

Array errorCell(E code) {
  return row(code, "", Array());
}

// A peer that was built by others understands these arrays only if every type, size and value is as here.
TEST(CommandLayout, IsWhatPeersExpectAndReadsBack) {
  C c(nullptr);
  const Array channel = row(E{1}, "x");
  const struct {
    Array built, layout;
    Parser parser;
    Value values;
  } trips[] = {
      {c.registerClientCmd(row("me", 1.0)), row("registerAsyncIOClient", row("me", 1.0)),
       &C::parseRegisterClientCmd, row("registerAsyncIOClient", "me", ok)},
      {c.unregisterClientCmd(0), row("unregisterAsyncIOClient", 0), &C::parseUnregisterClientCmd, row(0, ok)},
      {c.createHostCmd(1, 1ull << 63), row("createHost", 1, 1ull << 63), &C::parseCreateHostCmd,
       row(1, 1ull << 63, ok)},
      {c.terminateHostCmd(1, 2), row("terminateHost", 1, 2), &C::parseTerminateHostCmd, row(1, 2, ok)},
      {c.getActiveHostsCmd(3), row("getActiveHosts", 3), &C::parseGetActiveHostsCmd, row(3, ok)},
      {c.terminateChannelCmd(column("term", 3), 4), column("term", 3, 4), &C::parseTerminateChannelCmd,
       row(3, 4, ok)},
      {c.createErrorResponse(E{4}, "no", channel), row(row(E{4}, "no", channel)), &C::getResponseError, E{4}},
      {c.registerClientResponse("a", "b", 7), row(errorCell(ok), "a", "b", 7),
       &C::parseRegisterClientResponse, row("a", "b", 7, ok)},
      {c.createHostResponse(5, 6, ok), row(errorCell(ok), 5, 6), &C::parseCreateHostResponse, row(5, 6, ok)},
      {c.getActiveHostsResponse({5, 6}, ok), row(errorCell(ok), Numbers{5, 6}),
       &C::parseGetActiveHostsResponse, row(Numbers{5, 6}, ok)},
      {c.getActiveHostsResponse({}, ok), row(errorCell(ok), Array()), &C::parseGetActiveHostsResponse,
       row(Numbers(), E::InvalidElementType)},
      {c.createChannelResponse(channel, "a", ""), row(errorCell(ok), channel, "a", ""),
       &C::parseCreateChannelResponse, row(channel, "a", "", ok)},
      {c.terminateChannelResponse(Value(u"bye"), ok), row(errorCell(ok), u"bye"),
       &C::parseTerminateChannelResponse, row(u"bye", ok)},
      {c.terminateChannelResponse(channel, E{10}), row(errorCell(E{10}), channel),
       &C::parseTerminateChannelResponse, row(Array(), E{10})},
      // These two count rows.
      {c.terminateChannelCmd(row("term", 3, 4), 7),
       Value::cells({2, 3}, "term", 7, Array(), Array(), Array(), Array()), &C::parseTerminateChannelCmd,
       row(7, noNumber, E::InvalidElementType)},
      {c.getInterprocessTerminateChannelCmd(column("term", 3)), column("term"), &C::getCommand,
       row("term", ok)},
      {c.getInterprocessTerminateChannelCmd(row("term", 3)), Value::cells({0, 2}), &C::getCommand,
       row("", E::TooFewElements)},
  };
  for (const auto& [built, layout, parser, values] : trips) {
    EXPECT_EQ(built, layout);
    EXPECT_EQ(parser(c, built), values);
  }
}
