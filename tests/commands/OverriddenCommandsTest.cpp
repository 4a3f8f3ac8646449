#include <gtest/gtest.h>

#include "ArrayText.hpp"
#include "Parsers.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

using kestreldata::Array;

const auto ok = row({byte(0)});
const auto twoNumbers = row({text("anything"), number(1), number(2)});

class CountingFactory : public CommandUtil {
 public:
  using CommandUtil::CommandUtil;
  kestreldata::ArrayFactory& kdaFactory() override {
    ++asked;
    return CommandUtil::kdaFactory();
  }
  int asked = 0;
};

TEST(OverriddenCommands, EveryBuilderAsksForTheFactory) {
  const std::function<Array(CommandUtil&)> builders[] = {
      [](auto& c) { return c.createError(RemoteAsyncIOError{1}, "", Array()); },
      [](auto& c) { return c.registerClientCmd(Array()); },
      [](auto& c) { return c.unregisterClientCmd(1); },
      [](auto& c) { return c.createHostCmd(1, 2); },
      [](auto& c) { return c.terminateHostCmd(1, 2); },
      [](auto& c) { return c.getActiveHostsCmd(1); },
      [](auto& c) { return c.terminateChannelCmd(column({}), 1); },
      [](auto& c) { return c.getInterprocessTerminateChannelCmd(column({})); },
  };
  for (std::size_t i = 0; i < std::size(builders); ++i) {
    CountingFactory commands(nullptr);
    static_cast<void>(builders[i](commands));
    EXPECT_GE(commands.asked, 1) << "builder " << i;
  }
}

TEST(OverriddenCommands, EveryResponseBuilderAsksForTheFactoryBesideItsErrorCell) {
  constexpr auto code = RemoteAsyncIOError{1};
  const std::function<Array(CommandUtil&)> builders[] = {
      [](auto& c) { return c.createErrorResponse(code, "", Array()); },
      [](auto& c) { return c.registerClientResponse("", "", 1); },
      [](auto& c) { return c.createHostResponse(1, 2, code); },
      [](auto& c) { return c.getActiveHostsResponse({}, code); },
      [](auto& c) { return c.createChannelResponse(Array(), "", ""); },
      [](auto& c) { return c.terminateChannelResponse(Array(), code); },
  };
  for (std::size_t i = 0; i < std::size(builders); ++i) {
    CountingFactory commands(nullptr);
    static_cast<void>(builders[i](commands));
    EXPECT_GE(commands.asked, 2) << "builder " << i;
  }
}

class RenamingCommands : public CommandUtil {
 public:
  using CommandUtil::CommandUtil;
  std::tuple<std::string, RemoteAsyncIOError> getCommand(const Array&) override { return {name, error}; }
  std::string name = "getActiveHosts";
  RemoteAsyncIOError error = RemoteAsyncIOError::NoError;
};

TEST(OverriddenCommands, ParsersAskForTheNameOfACommand) {
  RenamingCommands commands(nullptr);
  EXPECT_EQ(parsed(commands, "parseGetActiveHostsCmd", twoNumbers), "1, 0");
  EXPECT_EQ(parsed(commands, "parseCreateHostCmd", twoNumbers), "default, default, 5");
  EXPECT_EQ(parsed(commands, "parseRegisterClientCmd", row({real(1), row({text("me")})})),
            R"("getActiveHosts", "me", 0)");
  commands.error = RemoteAsyncIOError{14};
  EXPECT_EQ(parsed(commands, "parseUnregisterClientCmd", twoNumbers), "default, 14");
}

class NineInEveryResponse : public CommandUtil {
 public:
  using CommandUtil::CommandUtil;
  RemoteAsyncIOError getResponseError(const Array&) override { return RemoteAsyncIOError{9}; }
};

TEST(OverriddenCommands, ResponsesAreJudgedByTheirErrorAndTwoOfThemByTheirErrorCell) {
  NineInEveryResponse commands(nullptr);
  const auto response = row({ok, number(1), number(2), number(3)});
  EXPECT_TRUE(commands.isValidResponse(Array()));
  EXPECT_TRUE(commands.isErrorResponse(response));
  EXPECT_EQ(parsed(commands, "parseCreateHostResponse", response), "default, default, 9");
  EXPECT_EQ(parsed(commands, "parseCreateChannelResponse", response), R"(double 0x0, "", "", 9)");
  EXPECT_EQ(parsed(commands, "parseTerminateChannelResponse", response), "double 0x0, 9");
  EXPECT_EQ(parsed(commands, "parseRegisterClientResponse", response), R"("", "", 3, 0)");
  EXPECT_EQ(parsed(commands, "parseGetActiveHostsResponse", response), "[1], 0");
}

class FixedHostCommand : public CommandUtil {
 public:
  using CommandUtil::CommandUtil;
  std::tuple<std::uint64_t, std::uint64_t, RemoteAsyncIOError> parseHostCmd(const Array&,
                                                                            std::string name) override {
    expectedName = name;
    return {1, 2, RemoteAsyncIOError{12}};
  }
  std::string expectedName;
};

TEST(OverriddenCommands, TheFamilyOfTwoNumbersIsParsedByTheSharedParser) {
  const std::pair<const char*, const char*> family[] = {{"parseCreateHostCmd", "createHost"},
                                                        {"parseTerminateHostCmd", "terminateHost"},
                                                        {"parseCreateChannelCmd", "createChannel"},
                                                        {"parseTerminateChannelCmd", "term"}};
  FixedHostCommand commands(nullptr);
  for (const auto& [parser, name] : family) {
    EXPECT_EQ(parsed(commands, parser, Array()), "1, 2, 12") << parser;
    EXPECT_EQ(commands.expectedName, name);
  }
}

class FixedErrorResponse : public CommandUtil {
 public:
  using CommandUtil::CommandUtil;
  Array createErrorResponse(RemoteAsyncIOError error, std::string message, const Array& data) override {
    return row({text(textOf(error) + message), data});
  }
};

TEST(OverriddenCommands, ResponsesWithoutPayloadAreBuiltByTheErrorResponse) {
  FixedErrorResponse commands(nullptr);
  EXPECT_EQ(textOf(commands.createNoErrorResponse()), R"(cell 1x2 {string 1x1 "0", double 0x0})");
  EXPECT_EQ(textOf(commands.registerClientResponse(RemoteAsyncIOError{8})),
            R"(cell 1x2 {string 1x1 "8", double 0x0})");
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
