#include "transports/nats/connection/ServerAddress.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <stdexcept>

namespace kestrel::streams {

namespace {

constexpr std::string_view separator = "://";

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

bool consistsOf(std::string_view text, std::string_view more) {
  return !text.empty() && std::ranges::all_of(text, [&](unsigned char c) {
    return (c < 0x80 && std::isalnum(c) != 0) || more.find(static_cast<char>(c)) != std::string_view::npos;
  });
}

void readUser(ServerAddress& server, std::string_view text, std::size_t at) {
  const auto colon = text.find(':');
  server.user = decodePercent(text.substr(0, colon), at);
  if (colon != std::string_view::npos)
    server.password = decodePercent(text.substr(colon + 1), at + colon + 1);
}

/// Where the host ends.
std::size_t checkHost(std::string_view text, std::size_t at) {
  const bool bracketed = text.starts_with('[');
  const auto end = std::min(bracketed ? text.find(']') : text.find(':'), text.size());
  const auto host = text.substr(bracketed ? 1 : 0, bracketed ? end - 1 : end);
  if (host.empty()) failEndpoint(at, "a server has no host");
  if (!consistsOf(host, bracketed ? ":.%" : ".-_") || (bracketed && end == text.size())) {
    failEndpoint(at,
                 "a host must be a name of letters, digits, '.', '-' and '_', or an address, one of IPv6 in "
                 "brackets; what is special in a user or password must be percent-encoded");
  }
  return bracketed ? end + 1 : end;
}

std::string readPort(std::string_view text, std::size_t at) {
  if (text.empty()) return ":4222";
  int port = 0;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data() + 1, end, port);
  if (text.front() != ':' || error != std::errc() || last != end || port < 1 || port > 65535) {
    failEndpoint(at, "behind a host there may be a port, a ':' and a whole number from 1 to 65535");
  }
  return ':' + std::to_string(port);
}

}  // namespace

void failEndpoint(std::size_t at, const std::string& what) {
  throw std::runtime_error("NATS endpoint, at character " + std::to_string(at + 1) + ": " + what);
}

std::string decodePercent(std::string_view text, std::size_t at) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    unsigned value = 0;
    const char* const from = text.data() + i + 1;
    const char* const to = text.data() + std::min(i + 3, text.size());
    if (to - from != 2 || std::from_chars(from, to, value, 16).ptr != to || value == 0) {
      failEndpoint(at + i, "two hexadecimal digits other than 00 must follow a '%'");
    }
    decoded += static_cast<char>(value);
    i += 2;
  }
  return decoded;
}

ServerAddress readServerAddress(std::string_view text, std::size_t at, std::string_view defaultScheme) {
  const auto colon = text.find(separator);
  const bool named = colon != std::string_view::npos;
  const std::string scheme = lowerCase(named ? text.substr(0, colon) : defaultScheme);
  if (scheme != "nats" && scheme != "tls") {
    failEndpoint(at, "each server must be nats://host:port or tls://host:port");
  }
  ServerAddress server;
  server.secure = scheme == "tls";
  std::size_t begin = named ? colon + separator.size() : 0;
  if (const auto end = text.find('@', begin); end != std::string_view::npos) {
    // Else the rest of a password that holds a ',' would be taken for a server.
    if (!named)
      failEndpoint(at,
                   "a server with a user must begin with nats:// or tls://; a ',' in a user or "
                   "password must be written %2C");
    readUser(server, text.substr(begin, end - begin), at + begin);
    begin = end + 1;
  }
  std::string_view address = text.substr(begin);
  if (address.ends_with('/')) address.remove_suffix(1);
  const std::size_t end = checkHost(address, at + begin);
  server.url = scheme + std::string(separator) + std::string(address.substr(0, end)) +
               readPort(address.substr(end), at + begin + end);
  return server;
}

}  // namespace kestrel::streams
