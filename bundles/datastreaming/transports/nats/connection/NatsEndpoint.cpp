#include "transports/nats/connection/NatsEndpoint.hpp"

#include <charconv>
#include <functional>
#include <kestrel/datastreaming/Keys.hpp>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace kestrel::streams {

using datastreaming::lasting::DataSteamingConfig;

namespace {

/// A key and its value, from the query or from the settings.
struct Field {
  std::string key;
  std::string value;
  std::optional<std::size_t> at;  // where in the endpoint the value begins
};

[[noreturn]] void fail(const Field& field, const std::string& expected) {
  const std::string text = "'" + field.key + "' must be " + expected;
  if (field.at) failEndpoint(*field.at, text);
  throw std::runtime_error("setting " + text);
}

/// Calls that with each part and where it begins.
template <class Function>
void split(std::string_view text, char separator, std::size_t at, Function&& call) {
  for (;;) {
    const auto end = text.find(separator);
    call(text.substr(0, end), at);
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
    at += end + 1;
  }
}

long readNumber(const Field& field, long least, long most) {
  long number = 0;
  const char* const end = field.value.data() + field.value.size();
  const auto [at, error] = std::from_chars(field.value.data(), end, number);
  if (error != std::errc() || at != end || number < least || number > most) {
    fail(field, "a whole number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return number;
}

void setDelivery(NatsEndpoint& endpoint, const Field& field) {
  if (field.value != "live" && field.value != "durable") fail(field, "\"live\" or \"durable\"");
  endpoint.delivery = field.value == "live" ? NatsEndpoint::Delivery::live : NatsEndpoint::Delivery::durable;
}

void setInboxPrefix(NatsEndpoint& endpoint, const Field& field) {
  constexpr std::string_view safe = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";
  const std::string dotted = "." + field.value + ".";
  if (dotted.find_first_not_of(safe) != std::string::npos || dotted.find("..") != std::string::npos ||
      dotted.starts_with(".kestrel.")) {
    fail(field, "a subject of letters, digits, '-', '_' and single dots, not below kestrel");
  }
  endpoint.inboxPrefix = field.value;
}

using Setter = std::function<void(NatsEndpoint&, const Field&)>;

Setter text(std::string NatsEndpoint::*member) {
  return [member](NatsEndpoint& endpoint, const Field& field) { endpoint.*member = field.value; };
}

template <class T>
Setter number(T NatsEndpoint::*member, long least, long most) {
  return [=](NatsEndpoint& endpoint, const Field& field) {
    endpoint.*member = T(readNumber(field, least, most));
  };
}

constexpr long day = 24L * 3600;

const std::map<std::string, Setter>& setters() {
  static const auto& table = *new const std::map<std::string, Setter>{
      // never destroyed
      {"delivery", setDelivery},
      {"inbox_prefix", setInboxPrefix},
      {"max_age_s", number(&NatsEndpoint::maxAge, 1, 3650 * day)},
      {"max_bytes", number(&NatsEndpoint::maxBytes, 1, INT64_MAX)},
      {"replicas", number(&NatsEndpoint::replicas, 1, 5)},
      {"retry_s", number(&NatsEndpoint::retry, 1, day)},
      {"tls_ca", text(&NatsEndpoint::certificateAuthority)},
      {"tls_cert", text(&NatsEndpoint::certificate)},
      {"tls_key", text(&NatsEndpoint::privateKey)},
      {"tls_host", text(&NatsEndpoint::certificateHost)},
      {DataSteamingConfig::WS_PING_INTERVAL_S, number(&NatsEndpoint::pingInterval, 1, day)},
      {DataSteamingConfig::WS_FIRST_RECONN_BACKOFF_MS, number(&NatsEndpoint::firstBackoff, 1, day * 1000)},
      {DataSteamingConfig::WS_MAX_RECONN_ATTEMPTS, number(&NatsEndpoint::maxReconnects, 0, INT32_MAX)},
  };
  return table;
}

std::string knownKeys() {
  std::string known;
  for (const auto& [name, unused] : setters()) known += (known.empty() ? "" : ", ") + name;
  return known;
}

void readQuery(NatsEndpoint& endpoint, std::string_view query, std::size_t begin) {
  // Else the rest of a password that holds a '?' would be taken for the query.
  if (const auto sign = query.find('@'); sign != std::string_view::npos) {
    failEndpoint(begin + sign, "a '@' in the query must be written %40, and a '?' in a user or password %3F");
  }
  split(query, '&', begin, [&](std::string_view pair, std::size_t at) {
    const auto equals = pair.find('=');
    const std::string key(pair.substr(0, equals));
    const auto setter = setters().find(key);
    if (setter == setters().end()) failEndpoint(at, "unknown key in the query; known are " + knownKeys());
    if (equals == std::string_view::npos) failEndpoint(at, "the key '" + key + "' has no value");
    const std::size_t value = at + equals + 1;
    setter->second(endpoint, {key, decodePercent(pair.substr(equals + 1), value), value});
  });
}

void addServer(NatsEndpoint& endpoint, std::string_view text, std::size_t at) {
  const bool first = endpoint.servers.empty();
  // A server without a scheme takes that of the first one.
  const std::string_view scheme = first ? "" : endpoint.secure ? "tls" : "nats";
  auto server = readServerAddress(text, at, scheme);
  if (!first && server.secure != endpoint.secure) {
    failEndpoint(at, "nats:// and tls:// servers cannot be mixed");
  }
  endpoint.secure = server.secure;
  endpoint.shown += (first ? "" : ",") + server.url;
  endpoint.servers.push_back(std::move(server));
}

}  // namespace

NatsEndpoint readNatsEndpoint(const ServiceSettings& settings) {
  const std::string endpoint = settings.text(DataSteamingConfig::DATASTREAMING_SERIVCE_URL);
  const std::string_view whole = endpoint;
  const auto question = whole.find('?');
  NatsEndpoint result;
  split(whole.substr(0, question), ',', 0,
        [&](std::string_view server, std::size_t at) { addServer(result, server, at); });
  if (question != std::string_view::npos) readQuery(result, whole.substr(question + 1), question + 1);
  for (const std::string& key :
       {DataSteamingConfig::WS_PING_INTERVAL_S, DataSteamingConfig::WS_FIRST_RECONN_BACKOFF_MS,
        DataSteamingConfig::WS_MAX_RECONN_ATTEMPTS}) {
    const std::string value = settings.text(key);
    if (!value.empty()) setters().at(key)(result, {key, value, std::nullopt});
  }
  if (result.certificate.empty() != result.privateKey.empty()) {
    failEndpoint(question + 1, "'tls_cert' and 'tls_key' must be given together");
  }
  result.token = settings.text(DataSteamingConfig::QXA_TOKEN);
  return result;
}

}  // namespace kestrel::streams
