#include "transports/nats/StoreReply.hpp"

#include <charconv>

namespace kestrel::streams {

namespace {

/// What follows a key and its colon; empty if there is no such key.
std::string_view after(std::string_view json, std::string_view key) {
  auto at = json.find(key);
  if (at == std::string_view::npos) return {};
  at = json.find_first_not_of(" \t\r\n:", at + key.size());
  return at == std::string_view::npos ? std::string_view{} : json.substr(at);
}

}  // namespace

StoreReply readStoreReply(std::string_view json) {
  if (const auto error = after(json, "\"error\""); !error.empty()) {
    auto text = after(error, "\"description\"");
    if (text.size() < 2 || text.front() != '"') return {0, std::string(error)};
    text.remove_prefix(1);
    return {0, std::string(text.substr(0, text.find('"')))};
  }
  const auto number = after(json, "\"seq\"");
  StoreReply reply;
  std::from_chars(number.data(), number.data() + number.size(), reply.sequence);
  if (reply.sequence == 0) reply.error = "the server's answer is not understood: " + std::string(json);
  return reply;
}

StoreReply readStoreReply(natsMsg* reply) {
  return readStoreReply(
      std::string_view(natsMsg_GetData(reply), static_cast<std::size_t>(natsMsg_GetDataLength(reply))));
}

}  // namespace kestrel::streams
