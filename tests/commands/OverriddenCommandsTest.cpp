#include <utility>

#include "Commands.hpp"

using namespace remote_connectivity::asyncio::util;

struct CountingFactory : C {
  using C::CommandUtil;
  kestreldata::ArrayFactory& kdaFactory() override { return ++asked, C::kdaFactory(); }
  int asked = 0;
};

TEST(OverriddenCommands, EveryBuilderAsksForTheFactoryOnceMoreForItsErrorCell) {
  CountingFactory c(nullptr);
  const auto expectAsked = [&](int times, const Array& built) {
    EXPECT_GE(std::exchange(c.asked, 0), times) << testing::PrintToString(built);
  };
  expectAsked(1, c.createError(E{1}, "", Array()));
  expectAsked(1, c.registerClientCmd(Array()));
  expectAsked(1, c.unregisterClientCmd(1));
  expectAsked(1, c.createHostCmd(1, 2));
  expectAsked(1, c.terminateHostCmd(1, 2));
  expectAsked(1, c.getActiveHostsCmd(1));
  expectAsked(1, c.terminateChannelCmd(column(), 1));
  expectAsked(1, c.getInterprocessTerminateChannelCmd(column()));
  expectAsked(2, c.createErrorResponse(E{1}, "", Array()));
  expectAsked(2, c.registerClientResponse("", "", 1));
  expectAsked(2, c.createHostResponse(1, 2, E{1}));
  expectAsked(2, c.getActiveHostsResponse({}, E{1}));
  expectAsked(2, c.createChannelResponse(Array(), "", ""));
  expectAsked(2, c.terminateChannelResponse(Array(), E{1}));
}

struct Replaced : C {
  using C::CommandUtil;
  std::tuple<std::string, E> getCommand(const Array&) override { return {"getActiveHosts", nameError}; }
  E getResponseError(const Array&) override { return E{9}; }
  std::tuple<std::uint64_t, std::uint64_t, E> parseHostCmd(const Array&, std::string name) override {
    return {name.size(), 2, E{12}};
  }
  Array createErrorResponse(E error, std::string, const Array&) override { return row("refused", error); }
  E nameError = E::NoError;
};

TEST(OverriddenCommands, ChangeWhatIsBuiltOnThem) {
  Replaced commands(nullptr);
  const auto response = row(row(E::NoError), 1, 2, 3);
  expectParsed(commands,
               {{&C::parseGetActiveHostsCmd, row("x", 1), row(1, E::NoError)},
                {&C::parseUnregisterClientCmd, row("x", 1), row(noNumber, E::UnexpectedCommand)},
                {&C::parseRegisterClientCmd, row(1.0, row("me")), row("getActiveHosts", "me", E::NoError)},
                {&C::parseCreateHostCmd, Array(), row(10, 2, E{12})},
                {&C::parseTerminateHostCmd, Array(), row(13, 2, E{12})},
                {&C::parseCreateChannelCmd, Array(), row(13, 2, E{12})},
                {&C::parseTerminateChannelCmd, Array(), row(4, 2, E{12})},
                {&C::parseCreateHostResponse, response, row(noNumber, noNumber, E{9})},
                {&C::parseCreateChannelResponse, response, row(Array(), "", "", E{9})},
                {&C::parseTerminateChannelResponse, response, row(Array(), E{9})},
                // These two look at the error cell itself.
                {&C::parseRegisterClientResponse, response, row("", "", 3, E::NoError)},
                {&C::parseGetActiveHostsResponse, response, row(Numbers{1}, E::NoError)}});
  commands.nameError = E{14};
  expectParsed(commands, {{&C::parseUnregisterClientCmd, row("x", 1), row(noNumber, E{14})}});
  EXPECT_TRUE(commands.isValidResponse(Array()));
  EXPECT_TRUE(commands.isErrorResponse(response));
  EXPECT_EQ(commands.createNoErrorResponse(), row("refused", E::NoError));
  EXPECT_EQ(commands.registerClientResponse(E{8}), row("refused", E{8}));
}
