#include <arpa/inet.h>
#include <sys/socket.h>

#include <atomic>

#include "NatsFaults.hpp"

namespace kestrel::streams {
namespace {

using datastreaming::ConnectionState;
using testing::AllOf;
using testing::HasSubstr;

TEST_F(NatsFaultsTest, LimitOfTheServerThatIsBackHoldsForWhatWaits) {
  Ends ends{factory("durable")};
  ends.startProducer("YES");
  _server->kill();
  const auto large = sendText(*ends.producer, std::string(6000, 'x'));
  const auto small = sendText(*ends.producer, std::string(1000, 'x'));
  _server->options.more = "max_payload: 5000";
  _server->start();
  EXPECT_THAT(outcomeOf(large), AllOf(HasSubstr("given up"), HasSubstr("max_payload of 5000")));
  EXPECT_EQ(outcomeOf(small), "accepted");
  EXPECT_EQ(ends.statistics().lost, 1U);
}

TEST_F(NatsFaultsTest, StatisticsSayHowTheConnectionStands) {
  Ends ends{factory("live")};
  _server->kill();
  const auto failure = [&] { return ends.statistics().connectionFailure; };
  ASSERT_TRUE(eventually("a failure", [&] { return failure().find("No server") != std::string::npos; }));
  EXPECT_EQ(ends.statistics().connection, ConnectionState::away);
  _server->start();
  ASSERT_TRUE(ends.comesBack());
  EXPECT_EQ(ends.statistics().connection, ConnectionState::connected);
  EXPECT_EQ(failure(), "");
}

/// Ends what this process has open to that port, wherever in a message it is.
void cutConnections(int port) {
  for (int socket = 3; socket < 1024; ++socket) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const bool open = ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
    if (open && ntohs(peer.sin_port) == port) ::shutdown(socket, SHUT_RDWR);
  }
}

TEST_P(NatsDeliveryTest, TrafficResumesWhereverTheConnectionIsCutAndLossIsCountedAndReported) {
  constexpr std::size_t size = 300'000;
  const bool live = GetParam() == "live";
  std::size_t sent = 0;
  std::atomic<std::size_t> next = 0, arrived = 0;  // next: behind the newest of those
  Ends ends{factory(GetParam())};
  ends.startConsumer([&](const std::uint8_t* data, std::uint64_t bytes, const auto&, auto&) {
    const std::string text(reinterpret_cast<const char*>(data), bytes);
    const std::size_t number = std::stoul(text);
    EXPECT_TRUE(text == numbered(number, size)) << number << " is damaged";
    EXPECT_GE(number, next) << "twice, or out of order";
    ++arrived;
    next = number + 1;
  });
  ends.startProducer();
  const auto send = [&] { (void)sendText(*ends.producer, numbered(sent++, size)); };
  for (int round = 1; round <= 8 || (live && ends.statistics().lost == 0 && round < 100); ++round) {
    if (round > 7) _server->freeze();  // then some of it is surely under way
    for (int i = 0; i < 10; ++i) send();
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * round));  // each time elsewhere
    cutConnections(_server->port());
    _server->thaw();
    ASSERT_TRUE(ends.comesBack(static_cast<std::uint64_t>(round)));
    send();
    ASSERT_TRUE(eventually("traffic to resume", [&] { return next == sent; }));
  }
  EXPECT_EQ(arrived + ends.statistics().lost, sent);
  EXPECT_EQ(ends.statistics().lost > 0, live) << "if nothing was lost, this proves little";
  EXPECT_TRUE(!live || ends.errors.waitTexts(1)[0].find("lost") != std::string::npos);
}

TransportCase overAServer(const char* name, const std::string& delivery) {
  const bool live = delivery == "live";
  const auto make = [delivery](std::uint64_t) -> TransportUnderTest {
    if (!NatsServer::unavailable().empty()) return {};
    const auto server = std::make_shared<NatsServer>();
    return {server, natsFactory(server->url("delivery=" + delivery))};
  };
  return {
      .name = name, .make = make, .broadcasts = live, .acknowledgesWithId = live, .mostForOne = "1048576"};
}

INSTANTIATE_TEST_SUITE_P(Nats, TransportSuite,
                         testing::Values(overAServer("NatsLive", "live"),
                                         overAServer("NatsDurable", "durable")),
                         [](const auto& info) { return std::string(info.param.name); });
INSTANTIATE_TEST_SUITE_P(Nats, NatsDeliveryTest, testing::Values("live", "durable"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace kestrel::streams
