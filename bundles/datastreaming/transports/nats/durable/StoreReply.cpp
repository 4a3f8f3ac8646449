#include "transports/nats/durable/StoreReply.hpp"

#include <nlohmann/json.hpp>

namespace kestrel::streams {

namespace {

using Json = nlohmann::json;

/// The member of that name and type, if there is one; never throws.
template <class Value>
const Value* member(const Json& object, const char* name) {
  const auto found = object.find(name);  // of anything but an object: the end
  return found == object.end() ? nullptr : found->get_ptr<const Value*>();
}

StoreReply notUnderstood(std::string_view text) {
  constexpr std::size_t mostShown = 200;
  return {0, "the server's answer is not understood: " + std::string(text.substr(0, mostShown))};
}

}  // namespace

StoreReply readStoreReply(std::string_view text) {
  const Json answer = Json::parse(text, nullptr, false);
  if (const auto error = answer.find("error"); error != answer.end()) {
    const auto* description = member<Json::string_t>(*error, "description");
    return description != nullptr && !description->empty() ? StoreReply{0, *description}
                                                           : notUnderstood(text);
  }
  const auto message = answer.find("message");
  const auto* number = member<Json::number_unsigned_t>(message == answer.end() ? answer : *message, "seq");
  return number != nullptr && *number > 0 ? StoreReply{*number, {}} : notUnderstood(text);
}

StoreReply readStoreReply(natsMsg* reply) {
  return readStoreReply(
      std::string_view(natsMsg_GetData(reply), static_cast<std::size_t>(natsMsg_GetDataLength(reply))));
}

std::string writeNextRequest(std::uint64_t from, const std::string& subject) {
  return Json{{"seq", from}, {"next_by_subj", subject}}.dump();
}

}  // namespace kestrel::streams
