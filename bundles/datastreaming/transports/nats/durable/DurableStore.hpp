#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "transports/nats/connection/NatsConnection.hpp"
#include "transports/nats/wire/SubjectNames.hpp"

namespace kestrel::streams {

/// Another consumer is active on a durable stream.
class ReaderExists : public std::runtime_error {
 public:
  ReaderExists()
      : std::runtime_error("the durable stream already has a consumer, and only one may receive from it") {}
};

/// The place where the server keeps one durable stream, and its one reader. Its calls wait for the server, at
/// most some seconds, and throw std::runtime_error. Shared by the stream and its ends: when the last of them
/// goes, the store of an anonymous stream is removed, which nobody could find again.
class DurableStore {
 public:
  DurableStore(std::shared_ptr<NatsConnection> connection, SubjectNames names);
  ~DurableStore();
  DurableStore(const DurableStore&) = delete;
  DurableStore& operator=(const DurableStore&) = delete;

  [[nodiscard]] const SubjectNames& names() const { return _names; }

  /// Makes it, or gives it the limits of the endpoint.
  void prepare() const;

  /// What an earlier reader has left behind.
  struct Claim {
    std::uint64_t sent = 0;      ///< the highest number that it was sent
    std::uint64_t finished = 0;  ///< up to this number nothing was to be read any more
    std::uint64_t first = 0;     ///< the lowest number that is still stored
    std::int64_t created = 0;    ///< when the store was made, as the server's clock says
  };

  /// Becomes the reader, to whom the server sends on that subject, which must have been subscribed to over
  /// that session. Throws ReaderExists if another one is active.
  [[nodiscard]] Claim claim(const std::shared_ptr<Session>& session, const std::string& deliverTo) const;
  /// Begins again, on that subject, with everything unacknowledged. Only after claim().
  void restart(const std::shared_ptr<Session>& session, const std::string& deliverTo) const;

  /// The lowest number above that one that is stored, if the message is one that the client does not show:
  /// empty, with the status 503.
  [[nodiscard]] std::optional<std::uint64_t> unshownAfter(const std::shared_ptr<Session>& session,
                                                          std::uint64_t number) const;

 private:
  struct State {
    std::uint64_t first = 0;   // the lowest number that is stored
    std::int64_t created = 0;  // when it was made
  };
  [[nodiscard]] State state(jsCtx* js) const;
  [[nodiscard]] jsStreamConfig configuration(std::array<const char*, 1>& subjects) const;
  [[nodiscard]] std::uint64_t firstStored(const Session& session, std::uint64_t from) const;
  void addReader(jsCtx* js, const std::string& deliverTo, std::uint64_t startsAfter) const;

  const std::shared_ptr<NatsConnection> _connection;
  const SubjectNames _names;
};

}  // namespace kestrel::streams
