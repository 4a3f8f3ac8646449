// Producers send plain messages and payloads; the way loses some, repeats some, and refuses some. Whatever
// arrives when: nothing wrong is delivered, each producer's come in order, what waits is bounded, every
// message is accounted for. Strangers forge; then only what they cannot spoil is looked at.
#include <algorithm>
#include <map>

#include "Fuzz.hpp"
#include "delivery/DeliveryPipeline.hpp"
#include "sequencing/ProducerStamper.hpp"

using namespace kestrel::fuzz;
using namespace kestrel::streams;

namespace {

constexpr PayloadSequencer::Limits limits{
    .silence = std::chrono::seconds(1), .payloadBytes = 500, .heldBytes = 4000, .producers = 16};

/// Of a message that is held; kept as long as its message waits.
struct Held final : Receipt {
  Held() { ++count; }
  ~Held() override { --count; }
  void settle() noexcept override {}
  static inline std::uint64_t count = 0;
};

struct Sender {
  explicit Sender(std::uint64_t id) : stamper(id) {}
  ProducerStamper stamper;
  std::uint64_t last = 0, newest = 0;   // the numbers of what was sent, and delivered, last
  Bytes open;                           // what has been sent of a payload
  std::map<std::uint64_t, Bytes> sent;  // by the number of its last message
};

class Scene {
 public:
  Scene(const std::uint8_t* data, std::size_t size) : _input(data, size) {
    for (std::uint64_t id = 1; id <= 3; ++id) _senders.emplace(id, id);
    _pipeline.setDataCallback([this](auto* bytes, auto size, auto& id, auto&) { take(bytes, size, id); });
    _pipeline.begin(_now);
  }

  void run() {
    while (_input.remaining_bytes() > 0) {
      step(_input.ConsumeIntegral<std::uint8_t>(), _input.ConsumeIntegralInRange<std::uint64_t>(1, 3));
      check(Held::count * 128 <= limits.heldBytes, "what is held is bounded");
    }
    for (auto& [id, sender] : _senders) _pipeline.producerReached(id, sender.last, _now, _now);
    for (std::uint64_t id = 1; id < 32; ++id) _pipeline.producerVanished(id);
    check(Held::count == 0 && !_pipeline.deadline(), "nothing is held of producers that have gone");
    if (_forged) return;
    const std::uint64_t accounted = _context->counters.messagesReceived + _context->counters.lost;
    check(accounted >= _accepted && accounted <= _accepted + _refused,
          "each message is delivered or counted");
    check(_context->counters.copies == _copies, "each copy is counted");
  }

 private:
  void step(unsigned choice, std::uint64_t id) {
    Sender& sender = _senders.at(id);
    if (choice < 200) return send(sender, choice);
    _now += std::chrono::milliseconds(choice);
    if (choice < 225) return _pipeline.tick(_now);
    if (choice < 230) return _pipeline.excuse(std::chrono::milliseconds(choice));
    if (choice < 240) return _pipeline.producerReached(id, sender.last, _now, _now);
    if (choice < 245) return _pipeline.payloadAbandoned(id);
    _forged = true;
    const auto number = [&](auto least, auto most) { return _input.ConsumeIntegralInRange(least, most); };
    if (choice < 250) return _pipeline.producerReached(number(4UL, 31UL), number(0UL, ~0UL), {}, _now);
    arrive({1, number(4UL, 31UL), number(1UL, ~0UL), choice, choice % 4, number(0U, ~0U), number(0, 1) > 0,
            number(0, 1) > 0, number(0, 1) > 0, number(-1L, 1L << 40)},
           {1, 2, 3});
  }

  /// The choice says in its bits: a piece, the last one, large, refused or lost or twice, the refusal is
  /// told.
  void send(Sender& sender, unsigned choice) {
    const bool chunk = (choice & 3) != 0;
    const Stamp stamp = sender.stamper.next({chunk, !chunk || (choice & 1) == 0, {}});
    sender.last = stamp.sequence;
    if (sender.stamper.broken(stamp) || (choice & 28) == 28) {
      ++_refused;
      if (sender.stamper.refused(stamp) && (choice & 32) != 0) _pipeline.payloadAbandoned(stamp.producer);
      return;
    }
    sender.stamper.accepted(stamp);
    ++_accepted;
    const Bytes bytes((choice & 4) * 8 + 1, static_cast<std::uint8_t>(stamp.sequence));
    if (chunk && stamp.chunkIndex == 0) sender.open.clear();
    if (chunk) sender.open.insert(sender.open.end(), bytes.begin(), bytes.end());
    if (stamp.last) sender.sent[stamp.sequence] = chunk ? sender.open : bytes;
    const unsigned times = (choice & 24) == 8 ? 0 : (choice & 24) == 16 ? 2 : 1;
    _copies += times / 2;
    for (unsigned i = 0; i < times; ++i) arrive(stamp, bytes);
  }

  void arrive(const Stamp& stamp, const Bytes& bytes) {
    Frame frame{
        .stamp = stamp, .arrival = _now, .earliest = _now, .data = bytes.data(), .size = bytes.size()};
    frame.receipt = std::make_unique<Held>();
    if (stamp.chunked) frame.attributes["COMPRESSIONTYPE"] = "chunk";
    if (!stamp.last) frame.attributes["UNCOMPRESSEDSIZE"] = 1L;
    _pipeline.accept(std::move(frame));
  }

  void take(const std::uint8_t* bytes, std::uint64_t size, const std::string& id) {
    const auto dash = id.find('-');
    const auto found = _senders.find(std::stoull(id.substr(0, dash), nullptr, 16));
    if (found == _senders.end()) return;
    const std::uint64_t number = std::stoull(id.substr(dash + 1));
    const Bytes& sent = found->second.sent[number];
    check(std::equal(bytes, bytes + size, sent.begin(), sent.end()), "what is delivered was sent, as one");
    check(number > std::exchange(found->second.newest, number), "a producer's come in order, and once");
  }

  Input _input;
  TimePoint _now = TimePoint() + std::chrono::hours(1);
  std::map<std::uint64_t, Sender> _senders;  // those that do not forge
  std::uint64_t _accepted = 0, _refused = 0, _copies = 0;
  bool _forged = false;
  // Reports go nowhere: a thread for them would cost most of the time.
  const std::shared_ptr<StreamContext> _context =
      std::make_shared<StreamContext>("fuzz", std::make_shared<ErrorReporter>(0));
  DeliveryPipeline _pipeline{_context, std::make_shared<ErrorOutlet>(_context), limits};
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Scene(data, size).run();
  return 0;
}
