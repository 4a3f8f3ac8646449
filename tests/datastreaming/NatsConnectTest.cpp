#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "Loopback.hpp"
#include "NatsFaults.hpp"

namespace kestrel::streams {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string secret = "s3cr3t-of-the-test";

class NatsConnectTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const auto why = NatsServer::unavailable(); !why.empty()) GTEST_SKIP() << why;
  }
};

/// The text of the failure to open a stream over that endpoint, which must come within seconds.
std::string failureOf(const std::string& url, const std::string& token = {}) {
  const auto begun = std::chrono::steady_clock::now();
  std::string text = "opened";
  try {
    (void)natsFactory(url, token)->getStream("s", {});
  } catch (const std::exception& error) {
    text = error.what();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(8)) << url;
  return text;
}

/// Listens, and treats whoever connects in a way no server does.
class StrangeServer {
 public:
  explicit StrangeServer(bool closes) {
    if (closes) _thread = std::thread([this] { closeEach(); });
  }
  ~StrangeServer() {
    _listener.stop();
    if (_thread.joinable()) _thread.join();
  }
  [[nodiscard]] std::string address() const { return _listener.address(); }

 private:
  void closeEach() {
    for (int client = 0; (client = _listener.accept()) >= 0;) ::close(client);
  }

  LoopbackListener _listener;
  std::thread _thread;
};

TEST_F(NatsConnectTest, WrongOrMissingTokenIsToldWithoutShowingIt) {
  const NatsServer server({.token = secret});
  EXPECT_EQ(failureOf(server.url(), secret), "opened");
  EXPECT_THAT(failureOf(server.url(), "wrong-" + secret),
              AllOf(HasSubstr("ConnectionError"), HasSubstr(server.address()), HasSubstr("token"),
                    Not(HasSubstr(secret))));
  EXPECT_THAT(failureOf(server.url()), AllOf(HasSubstr("TokenNotFound"), HasSubstr(server.address())));
  const std::string inUrl = "nats://user:" + secret + "-not@" + server.address();
  EXPECT_THAT(failureOf(inUrl),
              AllOf(HasSubstr("user or password"), HasSubstr(server.address()), Not(HasSubstr(secret))));
  EXPECT_EQ(failureOf("nats://" + secret + "@" + server.address()), "opened");
  EXPECT_THAT(failureOf(secret + ":" + secret + "@" + server.address()),
              AllOf(HasSubstr("nats:"), Not(HasSubstr(secret))));
}

TEST_F(NatsConnectTest, ServerThatIsNotThereOrStrangeIsToldWithinSeconds) {
  std::string nobody;
  {
    const StrangeServer gone(false);
    nobody = gone.address();
  }
  EXPECT_THAT(failureOf("nats://" + nobody, secret),
              AllOf(HasSubstr("ConnectionError"), HasSubstr(nobody), Not(HasSubstr(secret))));
  const StrangeServer mute(false), closing(true);
  EXPECT_THAT(failureOf("nats://" + mute.address()), AllOf(HasSubstr(mute.address()), HasSubstr("imeout")));
  EXPECT_THAT(failureOf("nats://" + closing.address()), HasSubstr(closing.address()));
}

TEST_F(NatsConnectTest, AnyServerOfTheListWillDo) {
  const NatsServer server;
  const StrangeServer closing(true);
  EXPECT_EQ(failureOf("nats://" + closing.address() + "," + server.address()), "opened");
}

constexpr const char* rights = R"(
  authorization { users: [
    { user: alice, password: a, permissions: {
        publish: ["kestrel.>", "_in.alice.>", "$JS.API.STREAM.CREATE.*", "$JS.API.STREAM.UPDATE.*",
                  "$JS.API.STREAM.INFO.*", "$JS.API.STREAM.MSG.GET.*", "$JS.API.CONSUMER.INFO.*.kestrel",
                  "$JS.API.CONSUMER.DURABLE.CREATE.*.kestrel", "$JS.API.CONSUMER.DELETE.*.kestrel",
                  "$JS.ACK.*.kestrel.>", "$JS.FC.*.kestrel.>"],
        subscribe: ["kestrel.>", "_in.alice.>"] } } ] }
)";

TEST_F(NatsConnectTest, InboxPrefixAndTheDocumentedRightsSufficeForAnAccount) {
  const NatsServer server({.more = rights});
  for (const std::string delivery : {"live", "durable"}) {
    Inbox inbox;
    Ends ends{
        natsFactory("nats://alice:a@" + server.address() + "?inbox_prefix=_in.alice&delivery=" + delivery)};
    ends.startConsumer(inbox.callback());
    ends.startProducer("YES");
    for (int i = 0; i < 40; ++i) (void)sendText(*ends.producer, std::string(500'000, 'x'));
    EXPECT_EQ(outcomeOf(sendText(*ends.producer, "last")), "accepted");
    EXPECT_EQ(inbox.waitTexts(41).back(), "last");
    ends.consumer.reset();
    ends.startConsumer(inbox.callback());
  }
  EXPECT_THAT(server.log(), Not(HasSubstr("Violation")));
}

TEST_F(NatsConnectTest, DurableStreamNeedsJetStream) {
  const NatsServer server({.store = false});
  EXPECT_EQ(failureOf(server.url()), "opened");
  EXPECT_THAT(failureOf(server.url("delivery=durable")),
              AllOf(HasSubstr("JetStream"), HasSubstr(server.address())));
}

class NatsTlsTest : public NatsConnectTest {
 protected:
  /// A server whose certificate carries that name, which is trusted with "tls_ca".
  void start(const std::string& name) {
    _folder = std::make_unique<NatsServer>();  // its directory holds the certificate
    _certificate = std::make_unique<Certificate>(_folder->directory(), name);
    _server = std::make_unique<NatsServer>(
        NatsServer::Options{.certificate = _certificate->file, .key = _certificate->key});
  }
  [[nodiscard]] std::string trusting(const std::string& more = {}) const {
    return _server->url("tls_ca=" + _certificate->file + more);
  }

  std::unique_ptr<NatsServer> _folder;
  std::unique_ptr<Certificate> _certificate;
  std::unique_ptr<NatsServer> _server;
};

TEST_F(NatsTlsTest, TrustedCertificateForTheAddressIsAccepted) {
  start("IP:127.0.0.1");
  EXPECT_EQ(failureOf(trusting()), "opened");
  EXPECT_THAT(failureOf(_server->url()),
              AllOf(HasSubstr("ConnectionError"), HasSubstr(_server->address()), HasSubstr("SSL")))
      << "the system does not trust it";
  EXPECT_THAT(failureOf("nats://" + _server->address()),
              AllOf(HasSubstr("ConnectionError"), HasSubstr(_server->address()), HasSubstr("use tls://"),
                    Not(HasSubstr("SSL"))));
  EXPECT_THAT(failureOf("tls://" + _folder->address()), HasSubstr("use nats://"));
  ::setenv("SSL_CERT_FILE", _certificate->file.c_str(), 1);
  EXPECT_EQ(failureOf(_server->url()), "opened") << "now the system trusts it";
  EXPECT_THAT(failureOf("nats://" + _server->address()), HasSubstr("use tls://"));
  ::unsetenv("SSL_CERT_FILE");
}

TEST_F(NatsTlsTest, CertificateMustCarryTheExpectedName) {
  start("DNS:engine.example");
  EXPECT_EQ(failureOf(trusting("&tls_host=engine.example")), "opened");
  EXPECT_THAT(failureOf(trusting("&tls_host=other.example")),
              AllOf(HasSubstr(_server->address()), HasSubstr("SSL")));
  EXPECT_THAT(failureOf(trusting()), AllOf(HasSubstr(_server->address()), HasSubstr("SSL")));
}

TEST_F(NatsTlsTest, LargeMessagesCrossTlsAndSendDoesNotWaitForAServerThatStandsStill) {
  start("IP:127.0.0.1");
  Inbox inbox;
  const auto factory = natsFactory(trusting());
  const auto stream = factory->getStream("s", {});
  const auto consumer = factory->createConsumer(stream);
  consumer->setDataCallback(inbox.callback());
  consumer->start().get();
  const auto producer = factory->createProducer(stream, {});
  producer->start().get();
  auto begun = std::chrono::steady_clock::now();
  for (char c = 'a'; c < 'u'; ++c) {
    if (c == 'k') {
      _server->freeze();
      begun = std::chrono::steady_clock::now();
    }
    EXPECT_EQ(outcomeOf(sendText(*producer, std::string(1'000'000, c))), "accepted");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(4));
  _server->thaw();
  const auto texts = inbox.waitTexts(20);
  for (std::size_t i = 0; i < 20; ++i)
    ASSERT_EQ(texts[i], std::string(1'000'000, static_cast<char>('a' + i)));
}

}  // namespace
}  // namespace kestrel::streams
