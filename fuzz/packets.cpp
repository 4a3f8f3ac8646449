// Whatever a packet holds, records are taken off it until the first that is none, and what they refer to lies
// within it. What is written is read as it was.
#include "Fuzz.hpp"
#include "transports/ipc/Record.hpp"

using namespace kestrel::fuzz;
using namespace kestrel::streams;
using kestrel::datastreaming::AttributeMap;

namespace {

void readAll(std::span<const std::uint8_t> packet) {
  const auto whole = packet;
  while (!packet.empty()) {
    const auto record = takeRecord(packet);
    if (!record) return;
    const auto* const message = std::get_if<MessageRecord>(&*record);
    if (message == nullptr) continue;
    for (const auto part : {message->attributes, message->data}) {
      const bool within =
          part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= packet.data());
      check(within, "a record refers to itself only");
    }
    check(message->inBlock || message->data.size() == message->size, "its bytes are as many as it says");
    if (const auto attributes = readAttributes(message->attributes)) {
      check(attributes->size() <= message->attributes.size() / 5, "no attribute comes of nothing");
    }
  }
}

void writeAndRead(Input& input) {
  Stamp stamp;
  stamp.producer = input.ConsumeIntegralInRange<std::uint64_t>(1, ~0ULL);
  stamp.sequence = stamp.payload = input.ConsumeIntegralInRange<std::uint64_t>(1, ~0ULL);
  stamp.chunkIndex = input.ConsumeIntegral<std::uint32_t>();
  stamp.chunked = input.ConsumeBool();
  AttributeMap attributes;
  for (int left = input.ConsumeIntegralInRange(0, 3); left > 0; --left) {
    auto& value = attributes[input.ConsumeRandomLengthString(100)];
    value = input.ConsumeIntegral<long>();
    if (input.ConsumeBool()) value = input.ConsumeRandomLengthString(100);
  }
  const Bytes bytes = input.ConsumeBytes<std::uint8_t>(1000);
  const auto written = OutgoingRecord::message(stamp, bytes.data(), bytes.size(), attributes, false, 0);
  auto packet = written->bytes();
  const auto read = takeRecord(packet);
  check(read && packet.empty(), "a record is read as one");
  const auto& message = std::get<MessageRecord>(*read);
  check(message.stamp.producer == stamp.producer && message.stamp.sequence == stamp.sequence &&
            message.stamp.chunkIndex == stamp.chunkIndex && message.stamp.chunked == stamp.chunked,
        "a stamp is read as it was written");
  check(readAttributes(message.attributes) == attributes, "attributes are read as they were written");
  check(std::ranges::equal(message.data, bytes), "bytes are read as they were written");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  readAll({data, size});
  Input input(data, size);
  writeAndRead(input);
  return 0;
}
