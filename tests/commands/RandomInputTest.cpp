#include <algorithm>
#include <random>

#include "Commands.hpp"

using namespace remote_connectivity::asyncio::util;
using namespace kestreldata;

/// Sound commands and responses, most of them with a random fault in a random place, and loose elements.
static std::vector<Array> nearlySound(std::size_t count) {
  std::mt19937 random(20240501);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  const Array ok = row(E::NoError);
  const auto oneOf = [&](const auto&... values) {
    return std::vector<Array>{values...}[below(sizeof...(values))];
  };
  std::vector<Array> arrays;
  while (arrays.size() < count) {
    TypedArray<Array> array = oneOf(
        row("registerAsyncIOClient", row("me")), row("unregisterAsyncIOClient", 1), row("createHost", 1, 2),
        row("terminateHost", 1, 2), row("getActiveHosts", 1), row("createChannel", 1, 2),
        column("term", 1, 2), row(ok, "a", "b", 1), row(ok, 1, 2), row(ok, 1, "a", "b"), row(ok, 1), ok);
    Array part =
        oneOf(Array(), Value(""), Value(u"term"), Value(u"\u00e9"), noText, missingText, Value(1), noNumbers,
              Value(1.0), Value(E{7}), row(), row(E{9}), row(E{16}), row(noText), row(1.0));
    if (below(3) == 0)
      part = factory.createArray(static_cast<ArrayType>(1 + below(24)), {below(3), below(3)});
    if (below(4) != 0) array[below(array.getNumberOfElements())] = part;
    std::vector<Array> elements(array.cbegin(), array.cend());
    if (below(4) == 0) elements.resize(below(elements.size()));
    arrays.push_back(below(8) == 0 ? part : factory.createCellArray({1, elements.size()}, elements));
  }
  return arrays;
}

TEST(RandomInput, MakesNoParserFailOtherThanItMay) {
  const std::pair<std::vector<Array>, std::vector<Parser>> allowedBy[] = {
      {{},
       {&C::getError, &C::getResponseError, &C::parseGetActiveHostsResponse,
        &C::parseTerminateChannelResponse}},
      {{thrown<InvalidArrayTypeException>, thrown<InvalidArrayIndexException>},
       {&C::parseCreateHostResponse}},
      {{thrown<NonAsciiCharInInputDataException>, thrown<MissingStringException>,
        thrown<InvalidArrayIndexException>},
       {&C::getCommand, &C::parseClientInfo, &C::parseRegisterClientCmd, &C::parseUnregisterClientCmd,
        &C::parseCreateHostCmd, &C::parseTerminateHostCmd, &C::parseGetActiveHostsCmd,
        &C::parseCreateChannelCmd, &C::parseTerminateChannelCmd, &C::parseRegisterClientResponse,
        &C::parseCreateChannelResponse}}};
  C commands(nullptr);
  for (const Array& input : nearlySound(3000))
    for (const auto& [allowed, parsers] : allowedBy)
      for (const Parser& parser : parsers) {
        const Array result = parser(commands, input);
        const bool threw = result.getType() == ArrayType::STRING;
        ASSERT_TRUE(!threw || std::ranges::count(allowed, result) == 1) << testing::PrintToString(input);
      }
}
