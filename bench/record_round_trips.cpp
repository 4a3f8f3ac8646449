// Records a table of times over payload sizes, as CSV on standard output: the data that the demo ships with.
//   record_round_trips [ROUNDS]     rounds per size, 50 by default
#include <cstdlib>
#include <iostream>
#include <remote_connectivity/asyncio/util/KDAHelper.hpp>

#include "Pair.hpp"
#include "Yardsticks.hpp"

namespace {

using namespace bench;

template <class Action>
double microseconds(Action&& action) {
  const auto start = Clock::now();
  action();
  return secondsSince(start) * 1e6;
}

void recordSize(ISendReceiveMessenger& client, KDAHelper& helper, std::size_t size, int rounds) {
  const kestreldata::Array array = bytesArray(size);
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::uint8_t> bytes;
    const double encode = microseconds([&] { bytes = helper.kdaToProtobufBytes(array); });
    const double decode =
        microseconds([&] { static_cast<void>(helper.kdaFromProtobuf(bytes.data(), bytes.size())); });
    const double trip = microseconds([&] { static_cast<void>(client.request(DataStruct(array))); });
    std::cout << size << ',' << encode << ',' << decode << ',' << trip << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 50;
  Pair pair;
  pair.far->setRequestHandler([](const DataStruct& message) { return message; });
  KDAHelper helper;
  std::cout << "payload_bytes,encode_us,decode_us,round_trip_us\n";
  for (std::size_t size = 100; size <= 10'000'000; size *= 10) recordSize(*pair.near, helper, size, rounds);
}
