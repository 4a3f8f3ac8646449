#include <algorithm>
#include <mutex>
#include <numeric>
#include <set>

#include "../datastreaming/NatsServer.hpp"
#include "LogCapture.hpp"
#include "Outstanding.hpp"
#include "kestrel/host/Host.hpp"
#include "remote_connectivity/asyncio/util/DataStreamMessengerFactory.hpp"

namespace library_test {

using kestrel::streams::NatsServer;
using Messenger = std::unique_ptr<ISendReceiveMessenger>;

/// Two sides, each with a connection of its own to a server, as two processes would have.
class MessengersOverNats : public testing::Test, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (const auto why = NatsServer::unavailable(); !why.empty()) GTEST_SKIP() << why;
    server = std::make_unique<NatsServer>();
    near = std::make_unique<DataStreamMessengerFactory>("", url());
    far = std::make_unique<DataStreamMessengerFactory>("", url());
  }
  [[nodiscard]] std::string url() const {
    return server->url(std::string("wsFirstReconnBackoffMs=20&delivery=") + GetParam());
  }

  const LogCapture log;
  const kestrel::host::Host host;
  std::unique_ptr<NatsServer> server;
  std::unique_ptr<DataStreamMessengerFactory> near, far;
};

TEST_P(MessengersOverNats, HoldSixtyFourRequestsOutstandingFromEightThreads) {
  const Messenger answering = far->createSendReceiveMessenger("back", "there", fast);
  answering->setRequestHandler([](const DataStruct& request) { return request; });
  const Messenger asking = near->createSendReceiveMessenger("there", "back", fast);
  holdSixtyFourRequestsOutstanding(*asking);
}

TEST_P(MessengersOverNats, AreNotMadeWithTheWrongToken) {
  NatsServer guarded({.token = "right-secret"});
  DataStreamMessengerFactory factory("wrong-secret", guarded.url(std::string("delivery=") + GetParam()));
  EXPECT_THAT([&] { (void)factory.createSendReceiveMessenger("a", "b"); },
              testing::ThrowsMessage<std::runtime_error>(testing::AllOf(
                  HasSubstr(guarded.address()), HasSubstr("token"), testing::Not(HasSubstr("secret")))));
}

/// Arrays of 3 MB whose bytes follow from their number.
class LargeArrays {
 public:
  static constexpr int count = slowness > 1 ? 60 : 300;
  static constexpr std::size_t size = 3'000'000;

  static Bytes content(int number) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>((i >> 9) * 7 + i + number);
    return bytes;
  }
  static DataStruct message(int number) {
    return DataStruct(KDAHelper().kdaFromByteArray(content(number)), {}, std::to_string(number));
  }

  /// Keeps what comes, in its order; for a receive handler.
  void take(const DataStruct& message) {
    const int number = std::stoi(message.id);
    const bool whole = KDAHelper().kdaToByteArray(message.data) == content(number);
    const std::lock_guard lock(_mutex);
    if (!whole) ++_damaged;
    _numbers.push_back(number);
  }
  std::vector<int> numbers() const {
    const std::lock_guard lock(_mutex);
    return _numbers;
  }
  int damaged() const {
    const std::lock_guard lock(_mutex);
    return _damaged;
  }

 private:
  mutable std::mutex _mutex;
  // Guarded by _mutex.
  std::vector<int> _numbers;
  int _damaged = 0;
};

TEST_P(MessengersOverNats, CarryLargeArraysThroughAServerThatIsKilledTwice) {
  const bool durable = GetParam() == std::string("durable");
  LargeArrays arrived;
  const Messenger receiving = far->createSendReceiveMessenger("unused", "there", fast);
  receiving->setReceiveHandler([&](const DataStruct& message) { arrived.take(message); });
  const Messenger sending =
      near->createSendReceiveMessenger("there", "unused too", {{"masgSizeRate", 200UL}});
  constexpr int third = LargeArrays::count / 3;
  for (int i = 0; i < LargeArrays::count; ++i) {
    if (i == third || i == 2 * third) server->kill();
    if (i == third + 5 || i == 2 * third + 5) server->start();
    // No more than may wait to be stored; otherwise send() would refuse it.
    const auto room = [&] { return !durable || arrived.numbers().size() + 60 > static_cast<std::size_t>(i); };
    ASSERT_TRUE(eventually("arrays to arrive", room)) << i;
    sending->send(LargeArrays::message(i));
  }
  const auto last = [&] {
    if (!durable) sending->send(LargeArrays::message(LargeArrays::count));  // until it finds a connection
    const auto numbers = arrived.numbers();
    return !numbers.empty() && numbers.back() >= LargeArrays::count - (durable ? 1 : 0);
  };
  ASSERT_TRUE(eventually("the last array", last));
  EXPECT_EQ(arrived.damaged(), 0);
  const auto numbers = arrived.numbers();
  if (durable) {
    std::vector<int> all(LargeArrays::count);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(numbers, all);
  } else {
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    const bool lost = std::set<int>(numbers.begin(), numbers.end()).size() <= LargeArrays::count;
    EXPECT_EQ(log.count("are missing") > 0, lost) << "what did not come must be reported";
  }
}

INSTANTIATE_TEST_SUITE_P(Nats, MessengersOverNats, testing::Values("live", "durable"));

}  // namespace library_test
