// What the sender cuts into chunks, the receiving side joins to the same payload with the same attributes.
#include <algorithm>

#include "Fuzz.hpp"
#include "remote_connectivity/asyncio/util/ReceiveDataHelper.hpp"
#include "remote_connectivity/asyncio/util/SendDataHelper.hpp"

using namespace kestrel::fuzz;
using namespace remote_connectivity::asyncio::util;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const auto limit = input.ConsumeIntegralInRange<std::size_t>(1, 300);
  const AttributeMap given{{"n", input.ConsumeIntegral<long>()}, {"t", input.ConsumeRandomLengthString(9)}};
  const Bytes payload = input.ConsumeRemainingBytes<std::uint8_t>();
  int received = 0;
  ReceiveDataHelper receiver([&](const std::uint8_t* bytes, std::uint64_t count, auto&, AttributeMap got) {
    check(std::equal(bytes, bytes + count, payload.begin(), payload.end()), "the payload is joined again");
    check((got.erase("UNCOMPRESSEDSIZE") > 0) == (payload.size() >= limit) && got == given,
          "the attributes come through");
    ++received;
  });
  SendDataHelper sender([&](const std::uint8_t* bytes, std::uint64_t count, AttributeMap attributes) {
    check(count <= limit, "no piece is larger than the limit");
    receiver.assembleAndProcess(bytes, count, "", attributes);
    return std::shared_future<std::string>();
  });
  (void)sender.send(payload, AttributeMap(given), limit, ~std::size_t{0});
  check(received == 1, "the pieces make one payload");
  return 0;
}
