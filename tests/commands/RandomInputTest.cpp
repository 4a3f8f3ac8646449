#include <algorithm>
#include <random>

#include "Commands.hpp"

using namespace remote_connectivity::asyncio::util;
using namespace kestreldata;

/// Arrays that are nearly commands and responses: sound ones with random faults, and some that are anything.
struct RandomArrays {
  Array next() {
    const Array chosen = oneOf({anything(3), row("registerAsyncIOClient", row("me")), row("createHost", 1, 2),
                                row("unregisterAsyncIOClient", 1), row("terminateHost", 1, 2),
                                row("getActiveHosts", 1), row("createChannel", 1, 2), column("term", 1, 2),
                                row(ok, "a", "b", 1), row(ok, 1, 2), row(ok, 1, "a", "b"), row(ok, 1), ok});
    if (chosen.getType() != ArrayType::CELL || below(2) == 0) return chosen;
    const TypedArray<Array> cells(chosen);
    std::vector<Array> elements(cells.begin(), cells.end());
    if (!elements.empty()) elements[below(elements.size())] = anything(2);
    if (below(4) == 0) elements.resize(below(elements.size() + 1));
    return factory.createCellArray({1, elements.size()}, elements);
  }
  Array anything(int depth) {
    if (depth == 0 || below(3) != 0)
      return oneOf({Array(), Value(""), Value(u"term"), Value(u"\u00e9"), noText, missingText, Value(1),
                    noNumbers, Value(1.0), Value(static_cast<E>(below(20))), row(),
                    factory.createArray(static_cast<ArrayType>(1 + below(24)), {below(3), below(3)})});
    std::vector<Array> elements(below(5));
    for (auto& element : elements) element = anything(depth - 1);
    return factory.createCellArray({1, elements.size()}, elements);
  }
  std::size_t below(std::size_t limit) { return random() % limit; }
  Array oneOf(const std::vector<Array>& arrays) { return arrays[below(arrays.size())]; }

  const Array ok = row(E::NoError);
  std::mt19937 random{20240501};
};

bool succeeded(const Array& result) {
  if (result.getType() != ArrayType::CELL) return result == Value(E::NoError);
  const TypedArray<Array> values(result);
  return std::ranges::find(values, Value(E::NoError)) != values.end();
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
  RandomArrays arrays;
  std::vector<Array> inputs(3000);
  for (Array& input : inputs) input = arrays.next();
  for (const auto& [allowed, parsers] : allowedBy)
    for (const Parser& parser : parsers) {
      int successes = 0;
      for (const Array& input : inputs) {
        const Array result = parser(commands, input);
        successes += succeeded(result);
        const bool threw = result.getType() == ArrayType::STRING;
        ASSERT_TRUE(!threw || std::ranges::count(allowed, result) == 1) << testing::PrintToString(input);
      }
      EXPECT_GT(successes, 10) << "hardly got past the first checks, parser " << &parser - parsers.data();
    }
}
