#include "Parsers.hpp"

#include <algorithm>
#include <stdexcept>

#include "ArrayText.hpp"

namespace remote_connectivity::asyncio::util {

using kestreldata::Array;
using kestreldata::ArrayFactory;

namespace {

template <class Result>
Parser parser(const char* name, Result (CommandUtil::*operation)(const Array&)) {
  return {name, [operation](CommandUtil& commands, const Array& array) {
            try {
              return textOf((commands.*operation)(array));
            } catch (const kestreldata::InvalidArrayTypeException&) {
              return std::string("throws InvalidArrayTypeException");
            } catch (const kestreldata::InvalidArrayIndexException&) {
              return std::string("throws InvalidArrayIndexException");
            } catch (const kestreldata::NonAsciiCharInInputDataException&) {
              return std::string("throws NonAsciiCharInInputDataException");
            } catch (const kestreldata::MissingStringException&) {
              return std::string("throws MissingStringException");
            }
          }};
}

#define PARSER(name) parser(#name, &CommandUtil::name)

}  // namespace

const std::vector<Parser>& allParsers() {
  static const std::vector<Parser> parsers{
      PARSER(getCommand),
      PARSER(getError),
      PARSER(getResponseError),
      PARSER(parseClientInfo),
      PARSER(parseRegisterClientCmd),
      PARSER(parseUnregisterClientCmd),
      PARSER(parseCreateHostCmd),
      PARSER(parseTerminateHostCmd),
      PARSER(parseGetActiveHostsCmd),
      PARSER(parseCreateChannelCmd),
      PARSER(parseTerminateChannelCmd),
      PARSER(parseRegisterClientResponse),
      PARSER(parseCreateHostResponse),
      PARSER(parseGetActiveHostsResponse),
      PARSER(parseCreateChannelResponse),
      PARSER(parseTerminateChannelResponse),
  };
  return parsers;
}

std::string parsed(CommandUtil& commands, const std::string& parser, const Array& array) {
  const auto& all = allParsers();
  const auto found = std::ranges::find(all, parser, &Parser::name);
  if (found == all.end()) throw std::logic_error("No parser " + parser);
  return found->parse(commands, array);
}

Array text(const std::string& value) {
  return ArrayFactory().createScalar(value);
}
Array chars(std::u16string_view value) {
  return ArrayFactory().createCharArray(value);
}
Array number(std::uint64_t value) {
  return ArrayFactory().createScalar(value);
}
Array real(double value) {
  return ArrayFactory().createScalar(value);
}
Array byte(std::uint8_t value) {
  return ArrayFactory().createScalar(value);
}
Array noNumbers() {
  return ArrayFactory().createArray<std::uint64_t>({0, 0});
}
Array noText() {
  return ArrayFactory().createArray(kestreldata::ArrayType::STRING, {0, 0});
}
Array missingText() {
  auto text = ArrayFactory().createScalar("");
  text.begin()->reset();
  return text;
}

Array row(std::vector<Array> elements) {
  const std::size_t count = elements.size();
  return ArrayFactory().createCellArray({1, count}, std::move(elements));
}

Array column(std::vector<Array> elements) {
  const std::size_t count = elements.size();
  return ArrayFactory().createCellArray({count, 1}, std::move(elements));
}

}  // namespace remote_connectivity::asyncio::util
