// Whatever a peer sends costs itself and nothing else: the next message still arrives, and what goes back is
// an answer.
#include <kestrel/diagnostics/SeveritySettings.hpp>

#include "../tests/library/FakeStreams.hpp"
#include "Fuzz.hpp"
#include "messenger/SendReceiveDataStream.hpp"

using namespace kestrel::fuzz;
using namespace library_test;

/// The attributes of a piece; most are right, and some are missing or of the wrong kind.
static AttributeMap marks(unsigned choice, bool last) {
  AttributeMap marks;
  if (choice < 200) marks["COMPRESSIONTYPE"] = std::string("chunk");
  if (choice < 16) marks["COMPRESSIONTYPE"] = 1L;
  if (choice % 16 < 12) marks["UNCOMPRESSEDSIZE"] = last ? 0L : 1L;
  if (choice % 16 == 15) marks["UNCOMPRESSEDSIZE"] = std::string("1");
  return marks;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrel::diagnostics::setStandardErrorOutput(false);
  Input input(data, size);
  const auto streams = std::make_shared<FakeStreams>();
  SendReceiveDataStream messenger("out", "in", streams, {{"masgSizeRate", ~0UL}}, {.handlerGrace = 0ms});
  Lines received;
  messenger.setReceiveHandler([&](const DataStruct& message) {
    check(decoded(encoded(message.data)) == message.data, "what a handler gets can be sent on");
    received.push_back(message.id);
  });
  if (input.ConsumeBool()) messenger.setRequestHandler([](const DataStruct& request) { return request; });
  std::vector<unsigned> pieces(input.ConsumeIntegralInRange<std::size_t>(1, 4));
  for (unsigned& choice : pieces) choice = input.ConsumeIntegral<std::uint8_t>();
  const Bytes bytes = input.ConsumeRemainingBytes<std::uint8_t>();
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const auto* const begin = bytes.data() + bytes.size() * i / pieces.size();
    const Bytes piece(begin, bytes.data() + bytes.size() * (i + 1) / pieces.size());
    (void)streams->deliver(piece, marks(pieces[i], i + 1 == pieces.size()));
  }
  received.clear();
  (void)streams->deliver(encoded(row({text("send"), number(1), text("plain")})), {});
  check(received == Lines{"plain"}, "a sound message behind a malformed one is received");
  KDAHelper helper;
  for (const SentMessage& sent : streams->sent()) {
    const auto envelope = openEnvelope(decoded(sent.bytes), helper);
    check(envelope.kind == Incoming::Kind::response, "only answers go back by themselves");
  }
  return 0;
}
