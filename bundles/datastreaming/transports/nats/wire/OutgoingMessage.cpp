#include "transports/nats/wire/OutgoingMessage.hpp"

#include <climits>

namespace kestrel::streams {

namespace {

std::shared_ptr<natsMsg> create(const std::string& subject, const std::string& reply, const void* data,
                                std::size_t size) {
  natsMsg* message = nullptr;
  require(natsMsg_Create(&message, subject.c_str(), reply.empty() ? nullptr : reply.c_str(),
                         static_cast<const char*>(data), static_cast<int>(size)),
          "making a message");
  return share(message);
}

}  // namespace

std::string tooLarge(std::uint64_t size, std::uint64_t headers, std::uint64_t limit) {
  std::string text = "a message of " + std::to_string(size) + " bytes";
  if (headers > 0) text += " (" + std::to_string(headers) + " of them headers)";
  return text + " exceeds the server's max_payload of " + std::to_string(limit) + " bytes";
}

std::variant<OutgoingMessage, std::string> makeMessage(const MessageParts& parts, std::uint64_t maxPayload) {
  // Before the copy, which may not even fit into memory.
  if (parts.size > maxPayload || parts.size > INT_MAX) return tooLarge(parts.size, 0, maxPayload);
  OutgoingMessage result{create(parts.subject, parts.reply, parts.data, parts.size), 0};
  HeaderWriter headers(result.message.get());
  headers.add(MessageHeaders::stamp, writeStamp(parts.stamp));
  headers.add(parts.attributes);
  if (parts.withId) {
    std::string id;
    writeMessageId(parts.stamp, id);
    headers.add(MessageHeaders::messageId, id);
  }
  result.wireSize = headers.size() + parts.size;
  if (result.wireSize > maxPayload) return tooLarge(result.wireSize, headers.size(), maxPayload);
  return result;
}

std::shared_ptr<natsMsg> makeEvent(const std::string& subject, const ProducerEvent& event,
                                   const std::string& reply) {
  auto message = create(subject, reply, nullptr, 0);
  HeaderWriter(message.get()).add(MessageHeaders::event, writeEvent(event));
  return message;
}

std::shared_ptr<natsMsg> makeSignal(const std::string& subject, const std::string& text) {
  return create(subject, {}, text.data(), text.size());
}

}  // namespace kestrel::streams
