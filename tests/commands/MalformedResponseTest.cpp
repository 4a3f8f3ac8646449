#include <gtest/gtest.h>

#include "ArrayText.hpp"
#include "Parsers.hpp"

namespace remote_connectivity::asyncio::util {
namespace {

using kestreldata::Array;

struct ResponseParser {
  const char* parser;
  const char* defaults;       // the values of a failure
  RemoteAsyncIOError short_;  // what a response of only the error cell means
  friend std::ostream& operator<<(std::ostream& out, const ResponseParser& row) { return out << row.parser; }
};

using E = RemoteAsyncIOError;

const ResponseParser responseParsers[] = {
    {"parseRegisterClientResponse", R"("", "", default, )", E::NoError},
    {"parseCreateHostResponse", "default, default, ", E::InvalidResponse},
    {"parseGetActiveHostsResponse", "[], ", E::TooFewElements},
    {"parseCreateChannelResponse", R"(double 0x0, "", "", )", E::TooFewElements},
    {"parseTerminateChannelResponse", "double 0x0, ", E::TooFewElements},
};

class MalformedResponse : public testing::TestWithParam<ResponseParser> {
 protected:
  void expect(const Array& response, RemoteAsyncIOError error) {
    EXPECT_EQ(parsed(commands, GetParam().parser, response), GetParam().defaults + textOf(error))
        << textOf(response);
  }

  /// A response long enough for every parser, with that error element.
  static Array withError(const Array& error) { return row({error, number(1), number(2), number(3)}); }

  CommandUtil commands{nullptr};
};

TEST_P(MalformedResponse, WithoutAReadableCodeIsInvalid) {
  const Array twoBytes = kestreldata::ArrayFactory().createArray<std::uint8_t>({0, 0});
  for (const auto& response :
       {chars(u"ok"), Array(), row({}), withError(byte(0)), withError(row({})), withError(row({real(0)})),
        withError(row({number(0)})), withError(row({byte(16)})), withError(row({byte(255)})),
        withError(row({twoBytes})), withError(row({byte(6)})), withError(row({byte(7)}))}) {
    expect(response, E::InvalidResponse);
  }
}

TEST_P(MalformedResponse, WithACodeGivesTheCodeAlone) {
  for (const std::uint8_t code : {1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15}) {
    expect(commands.createErrorResponse(RemoteAsyncIOError{code}, "why", Array()), RemoteAsyncIOError{code});
    expect(withError(row({byte(code)})), RemoteAsyncIOError{code});
  }
}

TEST_P(MalformedResponse, WithoutPayloadMeansWhatItsParserMakesOfIt) {
  expect(commands.createNoErrorResponse(), GetParam().short_);
}

INSTANTIATE_TEST_SUITE_P(All, MalformedResponse, testing::ValuesIn(responseParsers));

class ParsedResponse : public testing::TestWithParam<ParseCase> {};

TEST_P(ParsedResponse, GivesTheseValues) {
  CommandUtil commands(nullptr);
  EXPECT_EQ(parsed(commands, GetParam().parser, GetParam().input), GetParam().expected);
}

const Array ok = row({byte(0)});

INSTANTIATE_TEST_SUITE_P(
    ErrorCells, ParsedResponse,
    testing::Values(ParseCase{"codeOnly", "getError", row({byte(5)}), "5"},
                    ParseCase{"firstOfSeveralCodes", "getError",
                              row({kestreldata::ArrayFactory().createArray<std::uint8_t>({1, 2}, {3, 200})}),
                              "3"},
                    ParseCase{"bare", "getError", byte(5), "6"},
                    ParseCase{"limit", "getError", row({byte(16)}), "6"},
                    ParseCase{"highest", "getResponseError", row({row({byte(15)})}), "15"},
                    ParseCase{"unwrapped", "getResponseError", row({byte(0)}), "6"},
                    ParseCase{"noCell", "getResponseError", chars(u"x"), "7"},
                    ParseCase{"empty", "getResponseError", row({}), "7"}));

INSTANTIATE_TEST_SUITE_P(
    Payloads, ParsedResponse,
    testing::Values(
        ParseCase{"registerNoTexts", "parseRegisterClientResponse", row({ok, real(1), real(2), number(7)}),
                  R"("", "", 7, 0)"},
        ParseCase{"registerNoNumber", "parseRegisterClientResponse",
                  row({ok, text("a"), chars(u"b"), real(7)}), R"("a", "b", default, 3)"},
        ParseCase{"registerThree", "parseRegisterClientResponse", row({ok, text("a"), text("b")}),
                  R"("", "", default, 0)"},
        ParseCase{"registerMissingText", "parseRegisterClientResponse",
                  row({ok, missingText(), text("b"), number(7)}), "throws MissingStringException"},
        ParseCase{"hostTwo", "parseCreateHostResponse", row({ok, number(1)}), "default, default, 7"},
        ParseCase{"hostText", "parseCreateHostResponse", row({ok, chars(u"1"), number(2)}),
                  "throws InvalidArrayTypeException"},
        ParseCase{"hostEmpty", "parseCreateHostResponse", row({ok, number(1), noNumbers()}),
                  "throws InvalidArrayIndexException"},
        ParseCase{"hostsReal", "parseGetActiveHostsResponse", row({ok, real(5)}), "[], 3"},
        ParseCase{"hostsEmptyList", "parseGetActiveHostsResponse",
                  CommandUtil(nullptr).getActiveHostsResponse({}, E::NoError), "[], 3"},
        ParseCase{"hostsNone", "parseGetActiveHostsResponse", row({ok, noNumbers()}), "[], 0"},
        ParseCase{"hostsSquare", "parseGetActiveHostsResponse",
                  row({ok, kestreldata::ArrayFactory().createArray<std::uint64_t>({2, 2}, {5, 6, 7, 8})}),
                  "[5, 6, 7, 8], 0"},
        ParseCase{"channelThree", "parseCreateChannelResponse", row({ok, byte(1), text("a")}),
                  R"(double 0x0, "", "", 2)"},
        ParseCase{"channelFirstText", "parseCreateChannelResponse", row({ok, byte(1), real(1), text("b")}),
                  R"(double 0x0, "", "", 3)"},
        ParseCase{"channelSecondText", "parseCreateChannelResponse", row({ok, byte(1), text("a"), real(1)}),
                  R"(double 0x0, "", "", 3)"},
        ParseCase{"channelBadText", "parseCreateChannelResponse",
                  row({ok, byte(1), real(1), chars(u"\u00e9")}), "throws NonAsciiCharInInputDataException"}));

TEST(Responses, AreValidUnlessTheCodeSaysOtherwiseAndErrorsUnlessItIsZero) {
  CommandUtil commands(nullptr);
  for (std::uint8_t code = 0; code < 20; ++code) {
    const auto response = row({row({byte(code)})});
    EXPECT_EQ(commands.isValidResponse(response), code != 6 && code != 7 && code < 16) << int{code};
    EXPECT_EQ(commands.isErrorResponse(response), code != 0) << int{code};
  }
  EXPECT_TRUE(commands.isErrorResponse(Array()));
}

}  // namespace
}  // namespace remote_connectivity::asyncio::util
