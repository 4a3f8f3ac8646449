#include "Commands.hpp"

using namespace remote_connectivity::asyncio::util;

TEST(MalformedCommand, OfANameAndNumbersGivesItsCodeWithTheNumberReadBefore) {
  const struct {
    Parser parser;
    std::string name;
    bool two;
  } parsers[] = {{&C::parseUnregisterClientCmd, "unregisterAsyncIOClient", false},
                 {&C::parseGetActiveHostsCmd, "getActiveHosts", false},
                 {&C::parseCreateHostCmd, "createHost", true},
                 {&C::parseTerminateHostCmd, "terminateHost", true},
                 {&C::parseCreateChannelCmd, "createChannel", true},
                 {&C::parseTerminateChannelCmd, "term", true}};
  C commands(nullptr);
  for (const auto& [parser, name, two] : parsers) {
    const auto command = [two = two](const auto& first, const auto& last) {
      return two ? row(first, 1, last) : row(first, last);
    };
    const std::pair<E, std::vector<Array>> faults[] = {
        {E::NotACellArray, {Value(u"createHost"), noNumbers}},
        {E::TooFewElements, {row(), row(1.0), two ? row(name, 1) : row(name)}},
        {E::InvalidElementType, {command(1.0, 2), command(row(name), 2), row(name, 1.0, 2)}},
        {E::EmptyCommandName, {command("", 2), command(u"", 2)}},
        {E::UnexpectedCommand,
         {command("heartbeat", 2), command(name + "s", 2), command(name.substr(0, 3), 2),
          row("x", 1.0, 2.0)}},
    };
    for (const auto& [code, inputs] : faults)
      for (const Array& input : inputs)
        EXPECT_EQ(parser(commands, input), two ? row(noNumber, noNumber, code) : row(noNumber, code))
            << testing::PrintToString(input);
    for (const Value& last : {Value(2.0), Value(noNumbers), Value(Array())})
      EXPECT_EQ(parser(commands, command(name, last)),
                two ? row(1, noNumber, E::InvalidElementType) : row(noNumber, E::InvalidElementType));
  }
}

TEST(MalformedResponse, WithoutCodeIsInvalidAndWithACodeGivesTheCodeAlone) {
  const struct {
    Parser parser;
    std::function<Array(E)> failed;  // the values of a failure
    E withoutPayload;
  } parsers[] = {
      {&C::parseRegisterClientResponse, [](E code) { return row("", "", noNumber, code); }, E::NoError},
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
    for (const Array& error : {Array(Value(E{0})), row(), row(0.0), row(0), row(noBytes), row(E{6}),
                               row(E{7}), row(E{16}), row(E{255})})
      EXPECT_EQ(parser(commands, row(error, 1, 2, 3)), failed(E::InvalidResponse))
          << testing::PrintToString(error);
    for (const std::uint8_t code : {1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15}) {
      EXPECT_EQ(parser(commands, row(row(E{code}, "why", Array()))), failed(E{code}));
      EXPECT_EQ(parser(commands, row(row(E{code}), 1, 2, 3)), failed(E{code}));
    }
    EXPECT_EQ(parser(commands, row(row(E::NoError))), failed(withoutPayload));
  }
}

TEST(ParsedInput, GivesTheseValues) {
  using namespace kestreldata;
  C commands(nullptr);
  const Array ok = row(E::NoError);
  const Array square = factory.createArray<std::uint64_t>({2, 2}, {5, 6, 7, 8});
  expectParsed(
      commands,
      {
          {&C::parseRegisterClientCmd, row("heartbeat", row("me")), row("heartbeat", "me", E::NoError)},
          {&C::parseRegisterClientCmd, row(u"x", row(u"me", 1.0), 2), row("x", "me", E::NoError)},
          {&C::parseRegisterClientCmd, Value(u"x"), row("", "", E::TooFewElements)},
          {&C::parseRegisterClientCmd, Value(u"xy"), row("", "", E::NotACellArray)},
          {&C::parseRegisterClientCmd, row(1.0, row("me")), row("", "", E::InvalidElementType)},
          {&C::parseRegisterClientCmd, row("", 1.0), row("", "", E::EmptyCommandName)},
          {&C::parseRegisterClientCmd, row("x", u"me"), row("", "", E::NotACellArray)},
          {&C::parseRegisterClientCmd, row("x", row(1.0)), row("", "", E::InvalidElementType)},
          {&C::parseRegisterClientCmd, row("x", row()), thrown<InvalidArrayIndexException>},
          {&C::getCommand, row(u"createHost"), row("createHost", E::NoError)},
          {&C::getCommand, row(u"\u00e9"), thrown<NonAsciiCharInInputDataException>},
          {&C::parseUnregisterClientCmd, row(missingText, 1), thrown<MissingStringException>},
          {&C::parseCreateHostCmd, row(noText, 1, 2), thrown<InvalidArrayIndexException>},
          {&C::parseCreateChannelCmd, row("createChannel", 3, 4, 1.0), row(3, 4, E::NoError)},
          {&C::parseGetActiveHostsCmd, row("getActiveHosts", Numbers{8, 9}), row(8, E::NoError)},
          {&C::getResponseError, row(row(E{15})), E{15}},
          {&C::getResponseError, ok, E::InvalidErrorElement},
          {&C::getResponseError, row(), E::InvalidResponse},
          {&C::parseRegisterClientResponse, row(ok, 1.0, 2.0, 7), row("", "", 7, E::NoError)},
          {&C::parseRegisterClientResponse, row(ok, "a", u"b", 7.0),
           row("a", "b", noNumber, E::InvalidElementType)},
          {&C::parseRegisterClientResponse, row(ok, "a", "b"), row("", "", noNumber, E::NoError)},
          {&C::parseCreateHostResponse, row(ok, 1), row(noNumber, noNumber, E::InvalidResponse)},
          {&C::parseCreateHostResponse, row(ok, u"1", 2), thrown<InvalidArrayTypeException>},
          {&C::parseCreateHostResponse, row(ok, 1, noNumbers), thrown<InvalidArrayIndexException>},
          {&C::parseGetActiveHostsResponse, row(ok, 5.0), row(Numbers(), E::InvalidElementType)},
          {&C::parseGetActiveHostsResponse, row(ok, noNumbers), row(Numbers(), E::NoError)},
          {&C::parseGetActiveHostsResponse, row(ok, square), row(Numbers{5, 6, 7, 8}, E::NoError)},
          {&C::parseCreateChannelResponse, row(ok, 1, "a"), row(Array(), "", "", E::TooFewElements)},
          {&C::parseCreateChannelResponse, row(ok, 1, 1.0, "b"), row(Array(), "", "", E::InvalidElementType)},
          {&C::parseCreateChannelResponse, row(ok, 1, "a", 1.0), row(Array(), "", "", E::InvalidElementType)},
          {&C::parseCreateChannelResponse, row(ok, 1, 1.0, u"\u00e9"),
           thrown<NonAsciiCharInInputDataException>},
      });
}
