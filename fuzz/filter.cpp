// A filter is read or refused, is the same when read from its own text, and decides on any properties.
#include <cppmicroservices/LDAPFilter.h>

#include "Fuzz.hpp"

using namespace kestrel::fuzz;
using namespace cppmicroservices;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  AnyMap properties;
  properties["text"] = input.ConsumeRandomLengthString(16);
  properties["number"] = input.ConsumeIntegral<int>();
  properties["real"] = input.ConsumeFloatingPoint<double>();
  properties["list"] = std::vector<std::string>{"a", input.ConsumeRandomLengthString(8)};
  const std::string text = input.ConsumeRemainingBytesAsString();
  LDAPFilter filter;
  if (!failureOf<std::invalid_argument>([&] { filter = LDAPFilter(text); }).empty()) return 0;
  const LDAPFilter again(filter.ToString());
  check(again == filter && again.ToString() == filter.ToString(), "a filter's text is that filter");
  check(again.Match(properties) == filter.Match(properties), "two equal filters decide alike");
  if (!filter) return 0;
  const LDAPFilter opposite("(!" + filter.ToString() + ")");
  check(opposite.Match(properties) != filter.Match(properties), "its opposite decides otherwise");
  return 0;
}
