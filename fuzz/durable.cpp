// What the server says of stored messages is believed as far as it holds, and each message is dealt with
// once.
#include <map>

#include "Fuzz.hpp"
#include "transports/nats/durable/DurablePosition.hpp"
#include "transports/nats/durable/ReaderSubjects.hpp"
#include "transports/nats/durable/Resequencer.hpp"
#include "transports/nats/durable/StoreReply.hpp"

using namespace kestrel::fuzz;
using namespace kestrel::streams;

static void checkTexts(const std::string& text) {
  const StoreReply reply = readStoreReply(text);
  check((reply.sequence == 0) != reply.error.empty(), "an answer is a number or an error");
  static const ReaderSubjects mine(SubjectNames("mine")), theirs(SubjectNames("theirs"));
  const auto numbers = mine.readDelivery(text);
  if (numbers) {
    const auto again = mine.readDelivery(mine.acknowledgement(*numbers));
    check(again && again->stored == numbers->stored && again->count == numbers->count, "numbers stay");
  }
  if (!numbers && !mine.isFlowControl(text)) return;
  check(text.starts_with("$JS.") && text.find_first_of("*> \r\n") == std::string::npos,
        "what is answered is one subject of the server's");
  check(!theirs.readDelivery(text) && !theirs.isFlowControl(text), "and of one store");
}

static void checkPosition(Input input) {
  DurablePosition position;
  std::map<std::uint64_t, std::string> open;
  std::uint64_t newest = 0;
  position.startAfter(input.ConsumeIntegralInRange(0, 9));
  while (input.remaining_bytes() > 0) {
    const auto number = input.ConsumeIntegralInRange<std::uint64_t>(1, 40);
    const std::string subject = std::to_string(input.remaining_bytes());
    if (input.ConsumeBool()) {
      const auto arrival = position.arrived(number, subject);
      check(arrival.fresh == (number > newest), "a stored message is new once");
      check(arrival.settled == (!arrival.fresh && !open.contains(number)), "what was dealt with is known");
      newest = std::max(newest, number);
      if (!arrival.settled) open[number] = subject;
    } else {
      const auto expected = open.extract(number);
      check(position.settle(number) == (expected ? expected.mapped() : std::string()),
            "it is acknowledged once, where it was sent last");
    }
  }
}

static void checkOrder(Input input) {
  Resequencer<int> order({std::chrono::seconds(1), 100, [](const int&) { return std::uint64_t{20}; }, 4});
  TimePoint now{};
  int waiting = 0;
  const auto drain = [&] {
    while (order.next()) --waiting;
    check(waiting >= 0 && waiting <= 5, "nothing comes out twice, and no more waits than may");
  };
  while (input.remaining_bytes() > 0) {
    now += std::chrono::milliseconds(input.ConsumeIntegralInRange(0, 500));
    const auto producer = input.ConsumeIntegralInRange<std::uint64_t>(0, 6);
    const auto after = input.ConsumeIntegralInRange<std::uint64_t>(0, 20);
    ++waiting;
    order.accept(producer, after, after + 1, 0, now);
    if (input.ConsumeBool()) order.tick(now);
    if (input.ConsumeIntegralInRange(0, 9) == 0) order.forget(producer);
    drain();
  }
  order.giveUpGaps();
  drain();
  check(waiting == 0, "everything that came comes out");
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checkTexts(std::string(reinterpret_cast<const char*>(data), size));
  checkPosition(Input(data, size));
  checkOrder(Input(data, size));
  return 0;
}
