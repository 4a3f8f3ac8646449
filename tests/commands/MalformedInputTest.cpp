#include "Commands.hpp"

using namespace remote_connectivity::asyncio::util;

TEST(MalformedCommand, OfANameAndNumbersGivesItsCodeWithTheNumberReadBefore) {
  const std::string name = "createHost";
  const std::pair<E, std::vector<Array>> faults[] = {
      {E::NotACellArray, {Value(u"createHost"), Value(Numbers())}},
      {E::TooFewElements, {row(), row(1.0), row(name, 1)}},
      {E::InvalidElementType, {row(1.0, 1, 2), row(row(name), 1, 2), row(name, 1.0, 2)}},
      {E::EmptyCommandName, {row("", 1, 2), row(u"", 1, 2)}},
      {E::UnexpectedCommand, {row(name + "s", 1, 2), row("createHos", 1, 2), row("x", 1.0, 2.0)}},
  };
  const Parser parser = &C::parseCreateHostCmd;
  C commands(nullptr);
  for (const auto& [code, inputs] : faults)
    for (const Array& input : inputs)
      EXPECT_EQ(parser(commands, input), row(noNumber, noNumber, code)) << testing::PrintToString(input);
  for (const Value& last : {Value(2.0), Value(Numbers()), Value(Array())})
    EXPECT_EQ(parser(commands, row(name, 1, last)), row(1, noNumber, E::InvalidElementType));
}

TEST(MalformedResponse, WithoutCodeIsInvalidAndWithACodeGivesTheCodeAlone) {
  const struct {
    Parser parser;
    std::function<Array(E)> failed;  // the values of a failure
    E withoutPayload;
  } parsers[] = {
      {&C::parseRegisterClientResponse, [](E code) { return row("", "", noNumber, code); }, ok},
      {&C::parseCreateHostResponse, [](E code) { return row(noNumber, noNumber, code); }, E::InvalidResponse},
      {&C::parseGetActiveHostsResponse, [](E code) { return row(Numbers(), code); }, E::TooFewElements},
      {&C::parseCreateChannelResponse, [](E code) { return row(Array(), "", "", code); }, E::TooFewElements},
      {&C::parseTerminateChannelResponse, [](E code) { return row(Array(), code); }, E::TooFewElements},
  };
  const Array noBytes = factory.createArray<std::uint8_t>({0, 0});
  C commands(nullptr);
  for (const auto& [parser, failed, withoutPayload] : parsers) {
    for (const Array& response : {Array(), Array(noBytes), row()})
      EXPECT_EQ(parser(commands, response), failed(E::InvalidResponse)) << testing::PrintToString(response);
    for (const Array& error : {Array(Value(E{0})), row(0.0), row(noBytes), row(E{7}), row(E{16})})
      EXPECT_EQ(parser(commands, row(error, 1, 2, 3)), failed(E::InvalidResponse))
          << testing::PrintToString(error);
    for (const std::uint8_t code : {1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15})
      EXPECT_EQ(parser(commands, row(row(E{code}, "why", Array()), 1, 2, 3)), failed(E{code}));
    EXPECT_EQ(parser(commands, row(row(ok))), failed(withoutPayload));
  }
}

TEST(ParsedInput, GivesTheseValues) {
  C commands(nullptr);
  const Array good = row(ok);
  const Array square = factory.createArray<std::uint64_t>({2, 2}, {5, 6, 7, 8});
  expectParsed(commands,
               {{&C::parseRegisterClientCmd, row("heartbeat", row("me")), row("heartbeat", "me", ok)},
                {&C::parseRegisterClientCmd, Value(u"xy"), row("", "", E::NotACellArray)},
                {&C::parseRegisterClientCmd, row("", 1.0), row("", "", E::EmptyCommandName)},
                {&C::parseRegisterClientCmd, row("x", u"me"), row("", "", E::NotACellArray)},
                {&C::parseRegisterClientCmd, row("x", row(1.0)), row("", "", E::InvalidElementType)},
                {&C::parseRegisterClientCmd, row("x", row()), thrown},
                {&C::parseUnregisterClientCmd, row("x", 1), row(noNumber, E::UnexpectedCommand)},
                {&C::parseGetActiveHostsCmd, row("getActiveHosts"), row(noNumber, E::TooFewElements)},
                {&C::parseCreateChannelCmd, row("createChannel", 3, 4, 1.0), row(3, 4, ok)},
                {&C::parseGetActiveHostsCmd, row("getActiveHosts", Numbers{8, 9}), row(8, ok)},
                {&C::parseRegisterClientResponse, row(good, 1.0, 2.0, 7), row("", "", 7, ok)},
                {&C::parseRegisterClientResponse, row(good, "a", u"b", 7.0),
                 row("a", "b", noNumber, E::InvalidElementType)},
                {&C::parseCreateHostResponse, row(good, u"1", 2), thrown},
                {&C::parseGetActiveHostsResponse, row(good, 5.0), row(Numbers(), E::InvalidElementType)},
                {&C::parseGetActiveHostsResponse, row(good, square), row(Numbers{5, 6, 7, 8}, ok)},
                {&C::parseCreateChannelResponse, row(good, 1, "a", 1.0),
                 row(Array(), "", "", E::InvalidElementType)}});
}
