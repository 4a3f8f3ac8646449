#pragma once

#include <future>
#include <map>
#include <memory>
#include <string>

#include "kestrel/callbacks/ThreadSafety.hpp"
#include "transports/nats/connection/ConnectionWatcher.hpp"
#include "transports/nats/connection/ReplyInbox.hpp"
#include "transports/outgoing/Outbox.hpp"

namespace kestrel::streams {

/// Finds out when the server has accepted what was published: it takes the messages of one connection in
/// their order, so when a message that we sent to ourselves comes back, it has those before it. Safe from any
/// thread.
class EchoBook final : public ReplySink, public Poster, public ConnectionWatcher {
 public:
  void open(std::string replyPrefix) { _prefix = std::move(replyPrefix); }

  struct Expectation {
    std::uint64_t number = 0;
    std::shared_future<std::string> confirmed;
  };

  /// Begins with the confirmation of a message: it completes with that text, or fails if the session is lost
  /// over which the message was sent. Whoever posts the message tells by posting() and postsFailed(), with
  /// that number, and then asks.
  [[nodiscard]] Expectation expect(std::string text);
  /// Sends the message to ourselves. The book itself comes with each.
  static void ask(const std::shared_ptr<EchoBook>& book, Outbox& outbox, std::uint64_t number);

  void replied(std::uint64_t number, natsMsg* reply) override;
  [[nodiscard]] bool idle() override;
  void abandon(const std::string& why) override;
  void posting(std::uint64_t tag) noexcept override;
  void postsFailed(const std::vector<std::uint64_t>& tags, const std::string& why) override;
  void disconnected() override;
  void closed(const std::string& why) override { abandon(why); }

 private:
  struct Expected {
    std::promise<std::string> promise;
    std::string text;
    bool posted = false;  // it may have gone to the connection
  };
  using Book = std::map<std::uint64_t, Expected>;
  static void fail(Book& failed, const std::string& why);

  std::string _prefix;

  callbacks::Mutex _mutex;
  std::uint64_t _last KESTREL_GUARDED_BY(_mutex) = 0;
  Book _expected KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::streams
