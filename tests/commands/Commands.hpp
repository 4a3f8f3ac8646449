#pragma once

#include <concepts>
#include <functional>

#include "../PrintArray.hpp"
#include "remote_connectivity/asyncio/util/CommandUtil.hpp"

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using C = CommandUtil;
using E = RemoteAsyncIOError;
inline constexpr E ok = E::NoError;
using Numbers = std::vector<std::uint64_t>;

inline const kestreldata::ArrayFactory factory;
inline constexpr std::uint64_t noNumber = ~std::uint64_t{0};

Array row(const auto&... values);

/// A value as an array: a code is an unsigned 8-bit number, an integer an unsigned 64-bit one.
struct Value : Array {
  Value(const Array& array) : Array(array) {}
  Value(std::string_view text) : Array(factory.createScalar(text)) {}
  Value(std::u16string_view text) : Array(factory.createCharArray(text)) {}
  Value(E code) : Array(factory.createScalar(static_cast<std::uint8_t>(code))) {}
  Value(double number) : Array(factory.createScalar(number)) {}
  Value(std::integral auto number) : Array(factory.createScalar(static_cast<std::uint64_t>(number))) {}
  Value(const Numbers& all)
      : Array(factory.createArray<std::uint64_t>({1, all.size()}, all.begin(), all.end())) {}
  template <class... Parts>
  Value(const std::tuple<Parts...>& parts)
      : Array(std::apply([](const auto&... part) { return row(part...); }, parts)) {}

  static Array cells(const kestreldata::ArrayDimensions& dimensions, const auto&... values) {
    return factory.createCellArray(dimensions, std::vector<Array>{Value(values)...});
  }
};

Array row(const auto&... values) {
  return Value::cells({1, sizeof...(values)}, values...);
}
Array column(const auto&... values) {
  return Value::cells({sizeof...(values), 1}, values...);
}

/// What a parser gives that throws.
inline const Value thrown = std::string_view("thrown");

/// Any operation that reads an array; gives its results as a row, or thrown.
struct Parser {
  template <class Result>
  Parser(Result (C::*operation)(const Array&))
      : parse([=](C& commands, const Array& input) { return Value((commands.*operation)(input)); }) {}
  Array operator()(C& commands, const Array& input) const try {
    return parse(commands, input);
  } catch (const kestreldata::Exception&) {
    return thrown;
  }
  std::function<Array(C&, const Array&)> parse;
};

inline void expectParsed(C& commands, const std::vector<std::tuple<Parser, Array, Value>>& rows) {
  for (const auto& [parser, input, expected] : rows)
    EXPECT_EQ(parser(commands, input), expected) << testing::PrintToString(input);
}

}  // namespace remote_connectivity::asyncio::util
