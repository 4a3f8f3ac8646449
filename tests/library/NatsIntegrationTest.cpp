#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
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
    open();
  }
  void open() {
    host = std::make_unique<kestrel::host::Host>();
    near = std::make_unique<DataStreamMessengerFactory>("", url());
    far = std::make_unique<DataStreamMessengerFactory>("", url());
  }
  [[nodiscard]] std::string url() const {
    return server->url(std::string("wsFirstReconnBackoffMs=20&delivery=") + GetParam());
  }

  const LogCapture log;
  std::unique_ptr<kestrel::host::Host> host;
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
    const bool killed = i >= third && i % third < 5;
    if (killed && i % third == 0) server->kill();
    if (i > third && i % third == 5) server->start();
    // No more than may wait to be stored; otherwise send() would refuse it.
    const auto room = [&] { return arrived.numbers().size() + 60 > static_cast<std::size_t>(i); };
    if (durable && !killed) {
      ASSERT_TRUE(eventually("arrays to arrive", room)) << i;
    }
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

/// What the process holds that a forgotten thread or connection would add to.
struct Held {
  static std::size_t entriesOf(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }
  std::size_t threads = entriesOf("/proc/self/task");
  std::size_t descriptors = entriesOf("/proc/self/fd");
};

TEST_P(MessengersOverNats, LeaveNothingBehindInWhateverOrderAllIsDestroyed) {
  Messenger sending, receiving;
  std::atomic<int> received = 0;
  std::vector<std::function<void()>> steps{[&] { host.reset(); }, [&] { near.reset(); }, [&] { far.reset(); },
                                           [&] { sending.reset(); }, [&] { receiving.reset(); }};
  int rounds = 0;
  const auto runAndDestroy = [&](bool serverDown) {
    // A durable stream would keep what this round leaves unread.
    const std::string there = "there " + std::to_string(++rounds);
    const std::string back = "back " + std::to_string(rounds);
    sending = near->createSendReceiveMessenger(there, back, fast);
    receiving = far->createSendReceiveMessenger(back, there, fast);
    receiving->setReceiveHandler([&](const DataStruct&) { ++received; });
    const auto send = [&](int count) {
      for (int i = 0; i < count; ++i) sending->send(LargeArrays::message(i));
    };
    received = 0;
    send(1);
    ASSERT_TRUE(eventually("the first array", [&] { return received > 0; }));
    if (serverDown) server->kill();
    send(3);
    EXPECT_LT(timeOf([&] {
                for (const auto& step : steps) step();
              }),
              10s);
    if (serverDown) server->start();
  };
  runAndDestroy(false);  // some threads of the client and the pool start once and stay
  const Held before;
  for (int order = 0; order < 10; ++order) {
    open();
    runAndDestroy(order % 2 == 1);
    std::rotate(steps.begin(), steps.begin() + 1, steps.end());
    if (order == 4) std::reverse(steps.begin(), steps.end());
  }
  // A thread that has been joined may still be listed for a moment.
  const auto nothingLeft = [&] {
    const Held now;
    return now.threads <= before.threads && now.descriptors <= before.descriptors;
  };
  EXPECT_TRUE(eventually("threads and descriptors to be given back", nothingLeft));
}

INSTANTIATE_TEST_SUITE_P(Nats, MessengersOverNats, testing::Values("live", "durable"));

}  // namespace library_test
