#include "transports/nats/NatsEndpoint.hpp"

#include <algorithm>
#include <charconv>
#include <functional>
#include <kestrel/datastreaming/Keys.hpp>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace kestrel::streams {

using datastreaming::DataSteamingConfig;

namespace {

[[noreturn]] void fail(const std::string& text) {
  throw std::runtime_error("NATS endpoint: " + text);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const auto end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

std::string decodePercent(std::string_view text, const std::string& key) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    unsigned value = 0;
    const char* const from = text.data() + i + 1;
    const char* const to = text.data() + std::min(i + 3, text.size());
    if (to - from != 2 || std::from_chars(from, to, value, 16).ptr != to) {
      fail("the value of '" + key + "' has a '%' that two hexadecimal digits do not follow");
    }
    decoded += static_cast<char>(value);
    i += 2;
  }
  return decoded;
}

long readNumber(const std::string& key, const std::string& value, long least, long most) {
  long number = 0;
  const char* const end = value.data() + value.size();
  const auto [at, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || at != end || number < least || number > most) {
    fail("'" + key + "' must be a whole number from " + std::to_string(least) + " to " +
         std::to_string(most) + ", \"" + value + "\" came");
  }
  return number;
}

NatsEndpoint::Delivery readDelivery(const std::string& value) {
  if (value == "live") return NatsEndpoint::Delivery::live;
  if (value == "durable") return NatsEndpoint::Delivery::durable;
  fail("'delivery' must be \"live\" or \"durable\", \"" + value + "\" came");
}

using Setter = std::function<void(NatsEndpoint&, const std::string& key, const std::string& value)>;

Setter text(std::string NatsEndpoint::*member) {
  return [member](NatsEndpoint& endpoint, const std::string&, const std::string& value) {
    endpoint.*member = value;
  };
}

template <class T>
Setter number(T NatsEndpoint::*member, long least, long most) {
  return [=](NatsEndpoint& endpoint, const std::string& key, const std::string& value) {
    endpoint.*member = T(readNumber(key, value, least, most));
  };
}

constexpr long day = 24L * 3600;

const std::map<std::string, Setter>& setters() {
  static const std::map<std::string, Setter> table{
      {"delivery", [](NatsEndpoint& endpoint, const std::string&,
                      const std::string& value) { endpoint.delivery = readDelivery(value); }},
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

void readQuery(NatsEndpoint& endpoint, std::string_view query) {
  for (const std::string_view pair : split(query, '&')) {
    const auto equals = pair.find('=');
    const std::string key(pair.substr(0, equals));
    const auto setter = setters().find(key);
    if (setter == setters().end()) {
      std::string known;
      for (const auto& [name, unused] : setters()) known += (known.empty() ? "" : ", ") + name;
      fail("unknown key '" + key + "' in the query; known are " + known);
    }
    if (equals == std::string_view::npos) fail("the key '" + key + "' of the query has no value");
    setter->second(endpoint, key, decodePercent(pair.substr(equals + 1), key));
  }
}

void addServer(NatsEndpoint& endpoint, std::string_view server) {
  const auto colon = server.find("://");
  std::string scheme(server.substr(0, colon == std::string_view::npos ? 0 : colon));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  // A server without a scheme takes that of the first one.
  if (scheme.empty() && !endpoint.servers.empty()) scheme = endpoint.secure ? "tls" : "nats";
  if (scheme != "nats" && scheme != "tls") fail("each server must be nats://host:port or tls://host:port");
  const bool secure = scheme == "tls";
  if (!endpoint.servers.empty() && secure != endpoint.secure) {
    fail("nats:// and tls:// servers cannot be mixed");
  }
  const std::string_view address = colon == std::string_view::npos ? server : server.substr(colon + 3);
  const auto at = address.rfind('@');
  const std::string_view host = at == std::string_view::npos ? address : address.substr(at + 1);
  if (host.empty() || host.front() == ':') fail("a server has no host");
  endpoint.secure = secure;
  endpoint.servers.push_back(scheme + "://" + std::string(address));
  endpoint.shown += (endpoint.shown.empty() ? "" : ",") + scheme + "://" + std::string(host);
}

}  // namespace

NatsEndpoint readNatsEndpoint(const ServiceSettings& settings) {
  const std::string endpoint = settings.text(DataSteamingConfig::DATASTREAMING_SERIVCE_URL);
  std::string_view servers = endpoint;
  const auto question = servers.find('?');
  NatsEndpoint result;
  for (const auto server : split(servers.substr(0, question), ',')) addServer(result, server);
  if (question != std::string_view::npos) readQuery(result, servers.substr(question + 1));
  for (const std::string& key :
       {DataSteamingConfig::WS_PING_INTERVAL_S, DataSteamingConfig::WS_FIRST_RECONN_BACKOFF_MS,
        DataSteamingConfig::WS_MAX_RECONN_ATTEMPTS}) {
    const std::string value = settings.text(key);
    if (!value.empty()) setters().at(key)(result, key, value);
  }
  if (result.certificate.empty() != result.privateKey.empty()) {
    fail("'tls_cert' and 'tls_key' must be given together");
  }
  result.token = settings.text(DataSteamingConfig::QXA_TOKEN);
  return result;
}

}  // namespace kestrel::streams
