#include <gtest/gtest.h>

#include "ArrayText.hpp"
#include "Parsers.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

using kestreldata::Array;

/// The parsers of commands that are a name and some numbers.
struct NumberParser {
  const char* parser;
  const char* command;
  std::size_t numbers;
  friend std::ostream& operator<<(std::ostream& out, const NumberParser& row) { return out << row.parser; }
};

const NumberParser numberParsers[] = {
    {"parseUnregisterClientCmd", "unregisterAsyncIOClient", 1},
    {"parseGetActiveHostsCmd", "getActiveHosts", 1},
    {"parseCreateHostCmd", "createHost", 2},
    {"parseTerminateHostCmd", "terminateHost", 2},
    {"parseCreateChannelCmd", "createChannel", 2},
    {"parseTerminateChannelCmd", "term", 2},
};

/// A command of that name with the numbers 1, 2, ...
std::vector<Array> elementsOf(const Array& name, std::size_t numbers) {
  std::vector<Array> elements{name};
  for (std::size_t i = 1; i <= numbers; ++i) elements.push_back(number(i));
  return elements;
}

Array withLast(const NumberParser& parser, const Array& last) {
  auto elements = elementsOf(text(parser.command), parser.numbers);
  elements.back() = last;
  return row(elements);
}

Array withName(const NumberParser& parser, const Array& name) {
  return row(elementsOf(name, parser.numbers));
}

/// One way to get a command wrong, and the code that each parser gives for it.
struct CommandFault {
  const char* label;
  std::function<Array(const NumberParser&)> command;
  RemoteAsyncIOError error;
  std::size_t numbersKept = 0;  // counted from the end: so many fewer than all; 0: none is kept
  friend std::ostream& operator<<(std::ostream& out, const CommandFault& fault) { return out << fault.label; }
};

using E = RemoteAsyncIOError;

const CommandFault commandFaults[] = {
    {"text", [](auto&) { return chars(u"createHost"); }, E::NotACellArray},
    {"numberArray", [](auto&) { return noNumbers(); }, E::NotACellArray},
    {"emptyCell", [](auto&) { return row({}); }, E::TooFewElements},
    {"lastNumberAbsent", [](auto& p) { return row(elementsOf(text(p.command), p.numbers - 1)); },
     E::TooFewElements},
    {"tooFewAndNameless", [](auto&) { return row({real(1)}); }, E::TooFewElements},
    {"numberAsName", [](auto& p) { return withName(p, real(1)); }, E::InvalidElementType},
    {"cellAsName", [](auto& p) { return withName(p, row({text(p.command)})); }, E::InvalidElementType},
    {"emptyName", [](auto& p) { return withName(p, text("")); }, E::EmptyCommandName},
    {"emptyCharsAsName", [](auto& p) { return withName(p, chars(u"")); }, E::EmptyCommandName},
    {"otherName", [](auto& p) { return withName(p, text("heartbeat")); }, E::UnexpectedCommand},
    {"longerName", [](auto& p) { return withName(p, text(p.command + std::string("s"))); },
     E::UnexpectedCommand},
    {"shorterName", [](auto& p) { return withName(p, text(std::string(p.command, 3))); },
     E::UnexpectedCommand},
    {"otherNameAndNoNumbers",
     [](auto&) {
       return row({text("x"), real(1), real(2)});
     },
     E::UnexpectedCommand},
    {"realNumber", [](auto& p) { return withLast(p, real(2)); }, E::InvalidElementType, 1},
    {"emptyNumber", [](auto& p) { return withLast(p, noNumbers()); }, E::InvalidElementType, 1},
    {"defaultArray", [](auto& p) { return withLast(p, Array()); }, E::InvalidElementType, 1},
};

class MalformedCommand : public testing::TestWithParam<std::tuple<NumberParser, CommandFault>> {};

TEST_P(MalformedCommand, GivesItsCodeWithTheNumbersReadBefore) {
  const auto& [parser, fault] = GetParam();
  const std::size_t kept = fault.numbersKept == 0 ? 0 : parser.numbers - fault.numbersKept;
  std::string expected;
  for (std::size_t i = 0; i < parser.numbers; ++i) {
    expected += i < kept ? std::to_string(i + 1) + ", " : "default, ";
  }
  CommandUtil commands(nullptr);
  EXPECT_EQ(parsed(commands, parser.parser, fault.command(parser)), expected + textOf(fault.error));
}

INSTANTIATE_TEST_SUITE_P(All, MalformedCommand,
                         testing::Combine(testing::ValuesIn(numberParsers),
                                          testing::ValuesIn(commandFaults)));

class ParsedCommand : public testing::TestWithParam<ParseCase> {};

TEST_P(ParsedCommand, GivesTheseValues) {
  CommandUtil commands(nullptr);
  EXPECT_EQ(parsed(commands, GetParam().parser, GetParam().input), GetParam().expected);
}

const Array clientInfo = row({text("me")});

INSTANTIATE_TEST_SUITE_P(
    Registration, ParsedCommand,
    testing::Values(
        ParseCase{"otherName", "parseRegisterClientCmd", row({text("unregisterAsyncIOClient"), clientInfo}),
                  R"("unregisterAsyncIOClient", "me", 0)"},
        ParseCase{"moreElements", "parseRegisterClientCmd",
                  row({chars(u"x"), row({chars(u"me"), real(1)}), clientInfo}), R"("x", "me", 0)"},
        ParseCase{"countBeforeType", "parseRegisterClientCmd", chars(u"x"), R"("", "", 2)"},
        ParseCase{"type", "parseRegisterClientCmd", kestreldata::ArrayFactory().createArray<double>({1, 2}),
                  R"("", "", 1)"},
        ParseCase{"oneElement", "parseRegisterClientCmd", row({text("x")}), R"("", "", 2)"},
        ParseCase{"nameType", "parseRegisterClientCmd", row({real(1), clientInfo}), R"("", "", 3)"},
        ParseCase{"emptyName", "parseRegisterClientCmd", row({text(""), real(1)}), R"("", "", 4)"},
        ParseCase{"infoIsText", "parseRegisterClientCmd", row({text("x"), chars(u"me")}), R"("", "", 1)"},
        ParseCase{"infoHasNoText", "parseRegisterClientCmd", row({text("x"), row({real(1)})}),
                  R"("", "", 3)"},
        ParseCase{"infoEmpty", "parseRegisterClientCmd", row({text("x"), row({})}),
                  "throws InvalidArrayIndexException"},
        ParseCase{"emptyClientText", "parseClientInfo", row({text("")}), R"(0, "")"}));

INSTANTIATE_TEST_SUITE_P(
    Names, ParsedCommand,
    testing::Values(ParseCase{"chars", "getCommand", row({chars(u"createHost")}), R"("createHost", 0)"},
                    ParseCase{"noCell", "getCommand", text("createHost"), R"("", 1)"},
                    ParseCase{"empty", "getCommand", row({}), R"("", 2)"},
                    ParseCase{"real", "getCommand", row({real(1)}), R"("", 3)"},
                    ParseCase{"emptyText", "getCommand", row({text(""), number(1)}), R"("", 4)"},
                    ParseCase{"beyondSevenBits", "getCommand", row({chars(u"\u00e9")}),
                              "throws NonAsciiCharInInputDataException"},
                    ParseCase{"missing", "parseUnregisterClientCmd", row({missingText(), number(1)}),
                              "throws MissingStringException"},
                    ParseCase{"noString", "parseCreateHostCmd", row({noText(), number(1), number(2)}),
                              "throws InvalidArrayIndexException"}));

INSTANTIATE_TEST_SUITE_P(
    Numbers, ParsedCommand,
    testing::Values(ParseCase{"column", "parseTerminateChannelCmd",
                              column({text("term"), number(3), number(4)}), "3, 4, 0"},
                    ParseCase{"moreElements", "parseCreateHostCmd",
                              row({text("createHost"), number(3), number(4), real(1)}), "3, 4, 0"},
                    ParseCase{"firstOfSeveral", "parseGetActiveHostsCmd",
                              row({text("getActiveHosts"),
                                   kestreldata::ArrayFactory().createArray<std::uint64_t>({1, 2}, {8, 9})}),
                              "8, 0"},
                    ParseCase{"bothUnreadable", "parseCreateHostCmd",
                              row({text("createHost"), real(1), real(2)}), "default, default, 3"},
                    ParseCase{"firstUnreadable", "parseCreateHostCmd",
                              row({text("createHost"), real(1), number(2)}), "default, default, 3"}));

}  // namespace
}  // namespace remote_connectivity::asyncio::util
