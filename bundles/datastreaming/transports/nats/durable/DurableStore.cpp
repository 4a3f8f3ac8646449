#include "transports/nats/durable/DurableStore.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "delivery/Log.hpp"
#include "transports/nats/durable/StoreReply.hpp"
#include "transports/nats/wire/OutgoingMessage.hpp"

namespace kestrel::streams {

namespace {

constexpr std::int64_t waitMs = 3000;
constexpr std::chrono::seconds heartbeat{1};
constexpr std::chrono::hours repeat{1};           // lost messages are noticed in other ways, long before
constexpr std::int64_t unacknowledged = 1 << 24;  // a payload is acknowledged as a whole, however many pieces
constexpr std::chrono::seconds duplicates{120};
// The server reserves what a store may hold for as long as it exists; should the process be killed, for good.
constexpr std::int64_t mostAnonymous = 256LL << 20;

constexpr std::string_view beginning = "begins after ";

std::uint64_t readBeginning(const char* description) {
  const std::string text = description == nullptr ? "" : description;
  std::uint64_t number = 0;
  if (text.starts_with(beginning)) {
    std::from_chars(text.data() + beginning.size(), text.data() + text.size(), number);
  }
  return number;
}

std::int64_t nanoseconds(std::chrono::nanoseconds time) {
  return time.count();
}

jsOptions makeOptions() {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = waitMs;
  return options;
}

using StreamInfo = std::unique_ptr<jsStreamInfo, NatsDeleter<jsStreamInfo, jsStreamInfo_Destroy>>;
using ConsumerInfo = std::unique_ptr<jsConsumerInfo, NatsDeleter<jsConsumerInfo, jsConsumerInfo_Destroy>>;

JetStreamContext contextOf(const Session& session) {
  jsCtx* context = nullptr;
  jsOptions options = makeOptions();
  require(natsConnection_JetStream(&context, session.handle(), &options), "preparing JetStream");
  return JetStreamContext(context);
}

[[noreturn]] void fail(const NatsConnection& connection, const std::string& what, const std::string& cause) {
  throw std::runtime_error("durable delivery at " + connection.endpoint().shown + ": " + what + ": " + cause);
}

[[noreturn]] void fail(const NatsConnection& connection, const std::string& what, natsStatus status) {
  fail(connection, what, status == NATS_NO_RESPONDERS ? "JetStream is not enabled there" : describe(status));
}

}  // namespace

DurableStore::DurableStore(std::shared_ptr<NatsConnection> connection, SubjectNames names)
    : _connection(std::move(connection)), _names(std::move(names)) {}

/// Without waiting: the request goes out behind what the producers have sent, and nobody needs the answer.
DurableStore::~DurableStore() {
  if (!_names.anonymous) return;
  try {
    (void)_connection->outbox().post(
        {makeSignal("$JS.API.STREAM.DELETE." + _names.store), 256, 0, nullptr, 0});
  } catch (const std::exception& error) {
    logError("the store " + _names.store + " could not be removed: " + error.what());
  }
}

/// The texts and the array that it points to must outlive it.
jsStreamConfig DurableStore::configuration(std::array<const char*, 1>& subjects) const {
  const NatsEndpoint& endpoint = _connection->endpoint();
  jsStreamConfig config;
  require(jsStreamConfig_Init(&config), "preparing a store");
  config.Name = _names.store.c_str();
  config.Subjects = subjects.data();
  config.SubjectsLen = static_cast<int>(subjects.size());
  config.Retention = js_WorkQueuePolicy;  // what is acknowledged goes, and the server allows one reader only
  config.Discard = js_DiscardOld;
  config.Storage = js_FileStorage;
  config.MaxAge = nanoseconds(endpoint.maxAge);
  config.MaxBytes = _names.anonymous ? std::min(endpoint.maxBytes, mostAnonymous) : endpoint.maxBytes;
  config.Replicas = endpoint.replicas;
  config.Duplicates = nanoseconds(std::min({endpoint.maxAge, std::max(duplicates, endpoint.retry)}));
  return config;
}

void DurableStore::prepare() const {
  const auto session = _connection->session();
  const auto js = contextOf(*session);
  std::array<const char*, 1> subjects{_names.durable.c_str()};
  jsStreamConfig config = configuration(subjects);
  jsErrCode error{};
  natsStatus status = js_AddStream(nullptr, js.get(), &config, nullptr, &error);
  if (error == JSStreamNameExistErr) status = js_UpdateStream(nullptr, js.get(), &config, nullptr, &error);
  if (error == JSNotEnabledErr || error == JSNotEnabledForAccountErr) status = NATS_NO_RESPONDERS;
  if (error == JSStorageResourcesExceededErr || error == JSInsufficientResourcesErr) {
    fail(*_connection, "making the store " + _names.store,
         "no " + std::to_string(config.MaxBytes) +
             " bytes can be reserved there; lower max_bytes, raise the server's max_file_store, or remove "
             "streams that are not used any more");
  }
  if (status != NATS_OK) fail(*_connection, "making the store " + _names.store, status);
}

DurableStore::State DurableStore::state(jsCtx* js) const {
  jsStreamInfo* raw = nullptr;
  const natsStatus status = js_GetStreamInfo(&raw, js, _names.store.c_str(), nullptr, nullptr);
  const StreamInfo info(raw);
  if (status != NATS_OK) fail(*_connection, "asking about the store " + _names.store, status);
  return {info->State.FirstSeq, info->Created};
}

void DurableStore::addReader(jsCtx* js, const std::string& deliverTo, std::uint64_t startsAfter) const {
  // The server does not tell later where a reader began, so its description does.
  const std::string description = std::string(beginning) + std::to_string(startsAfter);
  jsConsumerConfig config;
  require(jsConsumerConfig_Init(&config), "preparing a reader");
  config.Durable = SubjectNames::reader.c_str();
  config.Description = description.c_str();
  config.DeliverSubject = deliverTo.c_str();
  config.AckPolicy = js_AckExplicit;
  config.AckWait = nanoseconds(repeat);
  config.MaxAckPending = unacknowledged;
  config.FlowControl = true;
  config.Heartbeat = nanoseconds(heartbeat);
  jsErrCode error{};
  const natsStatus status = js_AddConsumer(nullptr, js, _names.store.c_str(), &config, nullptr, &error);
  if (error == JSConsumerNameExistErr || error == JSConsumerExistingActiveErr) throw ReaderExists();
  if (status != NATS_OK) fail(*_connection, "becoming the reader of " + _names.store, status);
}

DurableStore::Claim DurableStore::claim(const std::shared_ptr<Session>& session,
                                        const std::string& deliverTo) const {
  const auto js = contextOf(*session);
  jsErrCode error{};
  jsConsumerInfo* raw = nullptr;
  const natsStatus status =
      js_GetConsumerInfo(&raw, js.get(), _names.store.c_str(), SubjectNames::reader.c_str(), nullptr, &error);
  const ConsumerInfo info(raw);
  if (status != NATS_OK && error != JSConsumerNotFoundErr) {
    fail(*_connection, "asking about the reader of " + _names.store, status);
  }
  Claim claim;
  std::uint64_t startsAfter = 0;
  if (info) {
    startsAfter = readBeginning(info->Config->Description);
    claim.sent = info->Delivered.Stream;
    claim.finished = std::max(info->AckFloor.Stream, startsAfter);
  }
  addReader(js.get(), deliverTo, startsAfter);
  const State now = state(js.get());
  claim.first = now.first;
  claim.created = now.created;
  return claim;
}

void DurableStore::restart(const std::shared_ptr<Session>& session, const std::string& deliverTo) const {
  const auto js = contextOf(*session);
  jsErrCode error{};
  const natsStatus status =
      js_DeleteConsumer(js.get(), _names.store.c_str(), SubjectNames::reader.c_str(), nullptr, &error);
  if (status != NATS_OK && error != JSConsumerNotFoundErr) {
    fail(*_connection, "restarting the reader of " + _names.store, status);
  }
  const std::uint64_t first = state(js.get()).first;
  addReader(js.get(), deliverTo, first == 0 ? 0 : first - 1);
}

/// The lowest number from that one on that is stored; 0 if there is none.
std::uint64_t DurableStore::firstStored(const Session& session, std::uint64_t from) const {
  const std::string subject = "$JS.API.STREAM.MSG.GET." + _names.store;
  const std::string request = writeNextRequest(from, _names.durable);
  natsMsg* raw = nullptr;
  const natsStatus status =
      natsConnection_RequestString(&raw, session.handle(), subject.c_str(), request.c_str(), waitMs);
  const NatsMessage reply(raw);
  if (status != NATS_OK) fail(*_connection, "reading the store " + _names.store, status);
  return readStoreReply(reply.get()).sequence;
}

std::optional<std::uint64_t> DurableStore::unshownAfter(const std::shared_ptr<Session>& session,
                                                        std::uint64_t number) const {
  const std::uint64_t next = firstStored(*session, number + 1);
  if (next == 0) return std::nullopt;
  const auto js = contextOf(*session);
  natsMsg* raw = nullptr;
  jsErrCode error{};
  const natsStatus status = js_GetMsg(&raw, js.get(), _names.store.c_str(), next, nullptr, &error);
  const NatsMessage message(raw);
  if (status != NATS_OK && error != JSNoMessageFoundErr) {
    fail(*_connection, "reading the store " + _names.store, status);
  }
  return message && natsMsg_IsNoResponders(message.get()) ? std::optional(next) : std::nullopt;
}

}  // namespace kestrel::streams
