// What is read of a header can be written again and is then read alike; names are sound and tell streams
// apart.
#include <algorithm>
#include <cctype>

#include "Fuzz.hpp"
#include "transports/StreamToken.hpp"
#include "transports/nats/wire/MessageHeaders.hpp"

using namespace kestrel::fuzz;
using namespace kestrel::streams;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (const auto stamp = readStamp(text.c_str())) {
    const auto again = readStamp(writeStamp(*stamp).c_str());
    check(again && writeStamp(*again) == writeStamp(*stamp), "a stamp is read as it was written");
  }
  if (const auto event = readEvent(text)) {
    const auto again = readEvent(writeEvent(*event));
    check(again && writeEvent(*again) == writeEvent(*event), "an event is read as it was written");
  }
  for (const auto& value :
       {readAttribute(text), std::optional(kestrel::datastreaming::AttributeValue(text))}) {
    check(!value || readAttribute(writeAttribute(*value)) == value, "an attribute is read as it was written");
  }
  const std::string other = Input(data, size).ConsumeRandomLengthString(), token = makeToken(text);
  const auto safe = [](unsigned char c) { return (c < 128 && std::isalnum(c) != 0) || c == '_' || c == '-'; };
  check(token.size() < 160 && std::ranges::all_of(token, safe), "a stream's name is one token of a subject");
  check(text == other || token != makeToken(other), "two streams have two names");
  return 0;
}
