#pragma once

#include <kestreldata/kestreldata.hpp>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "remote_connectivity/asyncio/util/CommandUtil.hpp"

namespace remote_connectivity::asyncio::util {

/// A parser whose result is a text (see ArrayText.hpp), so that cases of all parsers go into one table. An
/// exception of the array library becomes "throws " and its class.
struct Parser {
  std::string name;
  std::function<std::string(CommandUtil&, const kestreldata::Array&)> parse;
};

/// Every operation that reads an array, by the name of its member function.
const std::vector<Parser>& allParsers();

std::string parsed(CommandUtil& commands, const std::string& parser, const kestreldata::Array& array);

/// One row of a table.
struct ParseCase {
  std::string label;
  std::string parser;
  kestreldata::Array input;
  std::string expected;
  friend std::ostream& operator<<(std::ostream& out, const ParseCase& row) { return out << row.label; }
};

/// Short spellings of arrays.
kestreldata::Array text(const std::string& value);
kestreldata::Array chars(std::u16string_view value);
kestreldata::Array number(std::uint64_t value);
kestreldata::Array real(double value);
kestreldata::Array byte(std::uint8_t value);
kestreldata::Array noNumbers();    // of the unsigned 64-bit type
kestreldata::Array noText();       // a string array without elements
kestreldata::Array missingText();  // a string array whose element is missing
kestreldata::Array row(std::vector<kestreldata::Array> elements);
kestreldata::Array column(std::vector<kestreldata::Array> elements);

}  // namespace remote_connectivity::asyncio::util
