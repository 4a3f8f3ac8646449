#include <cstdlib>

#include "NatsFaults.hpp"

namespace kestrel::streams {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The text of the failure to open a stream over that endpoint.
std::string failureOf(const std::string& url, const std::string& token = {}) {
  try {
    (void)natsFactory(url, token)->getStream("s", {});
    return "opened";
  } catch (const std::exception& error) {
    return error.what();
  }
}

TEST_F(NatsFaultsTest, WrongOrMissingTokenIsToldWithoutShowingIt) {
  const NatsServer server({.more = "authorization { token: 's3cr3t' }"});
  EXPECT_EQ(failureOf(server.url(), "s3cr3t"), "opened");
  EXPECT_EQ(failureOf("nats://s3cr3t@" + server.address()), "opened");
  EXPECT_THAT(failureOf(server.url(), "wrong-s3cr3t"),
              AllOf(HasSubstr("ConnectionError"), HasSubstr("token"), Not(HasSubstr("s3cr3t"))));
  EXPECT_THAT(failureOf(server.url()), AllOf(HasSubstr("TokenNotFound"), HasSubstr(server.address())));
  EXPECT_THAT(failureOf("nats://user:s3cr3t-not@" + server.address()),
              AllOf(HasSubstr("user or password"), Not(HasSubstr("s3cr3t"))));
}

TEST_F(NatsFaultsTest, ServerThatIsMuteOrNotThereIsToldAndAnotherOfTheListWillDo) {
  NatsServer lost;
  lost.freeze();
  EXPECT_THAT(failureOf(lost.url()), AllOf(HasSubstr(lost.address()), HasSubstr("imeout")));
  lost.kill();
  EXPECT_THAT(failureOf(lost.url()), AllOf(HasSubstr("ConnectionError"), HasSubstr(lost.address())));
  EXPECT_EQ(failureOf(lost.url() + "," + _server->address()), "opened");
}

constexpr const char* rights = R"(
  authorization { users: [ { user: alice, password: a, permissions: {
    publish: ["kestrel.>", "_in.alice.>", "$JS.API.STREAM.CREATE.*", "$JS.API.STREAM.UPDATE.*",
              "$JS.API.STREAM.INFO.*", "$JS.API.STREAM.MSG.GET.*", "$JS.API.CONSUMER.INFO.*.kestrel",
              "$JS.API.CONSUMER.DURABLE.CREATE.*.kestrel", "$JS.API.CONSUMER.DELETE.*.kestrel",
              "$JS.ACK.*.kestrel.>", "$JS.FC.*.kestrel.>"],
    subscribe: ["kestrel.>", "_in.alice.>"] } } ] })";

TEST_F(NatsFaultsTest, InboxPrefixAndTheDocumentedRightsSufficeForAnAccount) {
  const NatsServer server({.more = rights});
  for (const std::string delivery : {"live", "durable"}) {
    Ends ends{
        natsFactory("nats://alice:a@" + server.address() + "?inbox_prefix=_in.alice&delivery=" + delivery)};
    ends.start("YES");
    for (int i = 0; i < 40; ++i) (void)sendText(*ends.producer, std::string(500'000, 'x'));
    EXPECT_EQ(outcomeOf(sendText(*ends.producer, "last")), "accepted");
    EXPECT_EQ(ends.inbox.waitTexts(41).back(), "last");
    ends.consumer.reset();
    ends.startConsumer(ends.inbox.callback());
  }
  EXPECT_THAT(server.read("log"), Not(HasSubstr("Violation")));
}

TEST_F(NatsFaultsTest, DurableStreamNeedsJetStreamAndRoomForItsStore) {
  const NatsServer without({.store = "enabled: false"}), small({.store = "max_file_store: 1000000"});
  EXPECT_EQ(failureOf(without.url()), "opened");
  EXPECT_THAT(failureOf(without.url("delivery=durable")),
              AllOf(HasSubstr("JetStream"), HasSubstr(without.address())));
  EXPECT_THAT(failureOf(small.url("delivery=durable")),
              AllOf(HasSubstr("1073741824 bytes"), HasSubstr("max_bytes")));
}

class NatsTlsTest : public NatsFaultsTest {
 protected:
  /// A server whose certificate carries that name, and its endpoint that trusts it.
  std::string start(const std::string& name) {
    const Certificate certificate(_server->directory(), name);
    _guarded = std::make_unique<NatsServer>(
        NatsServer::Options{.certificate = certificate.file, .key = certificate.key});
    return _guarded->url("tls_ca=" + certificate.file);
  }

  std::unique_ptr<NatsServer> _guarded;
};

TEST_F(NatsTlsTest, CertificateMustBeTrustedAndCarryTheExpectedName) {
  EXPECT_EQ(failureOf(start("IP:127.0.0.1")), "opened");
  EXPECT_THAT(failureOf(_guarded->url()),
              AllOf(HasSubstr("ConnectionError"), HasSubstr(_guarded->address()), HasSubstr("SSL")))
      << "the system does not trust it";
  EXPECT_THAT(failureOf("nats://" + _guarded->address()), HasSubstr("use tls://"));
  EXPECT_THAT(failureOf("tls://" + _server->address()), HasSubstr("use nats://"));
  ::setenv("SSL_CERT_FILE", (_server->directory() / "certificate.pem").c_str(), 1);
  EXPECT_EQ(failureOf(_guarded->url()), "opened") << "now the system trusts it";
  ::unsetenv("SSL_CERT_FILE");
  const std::string trusting = start("DNS:engine.example");
  EXPECT_EQ(failureOf(trusting + "&tls_host=engine.example"), "opened");
  EXPECT_THAT(failureOf(trusting + "&tls_host=other.example"), HasSubstr("SSL"));
  EXPECT_THAT(failureOf(trusting), HasSubstr("SSL"));
}

TEST_F(NatsTlsTest, LargeMessagesCrossTlsAndSendDoesNotWaitForAServerThatStandsStill) {
  Ends ends{natsFactory(start("IP:127.0.0.1"))};
  ends.start();
  std::vector<std::string> sent;
  for (char c = 'a'; c < 'u'; ++c) {
    if (c == 'k') _guarded->freeze();
    EXPECT_EQ(outcomeOf(sendText(*ends.producer, sent.emplace_back(1'000'000, c))), "accepted");
  }
  _guarded->thaw();
  EXPECT_TRUE(ends.inbox.waitTexts(20) == sent);
}

}  // namespace
}  // namespace kestrel::streams
