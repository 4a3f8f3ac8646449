#include "remote_connectivity/asyncio/util/ReceiveDataHelper.hpp"

#include "Constants.hpp"
#include "kestrel/datastreaming/Keys.hpp"
#include "kestrel/diagnostics/Logger.hpp"

namespace remote_connectivity::asyncio::util {

using kestrel::datastreaming::lasting::MessageAttributes;
using kestrel::diagnostics::Severity;

namespace {
const kestrel::diagnostics::Logger logger("asyncio::util::ReceiveDataHelper");
constexpr char tag[] = "ReceiveDataHelper:assembleAndProcess: ";

/// Or something that is no number, which is an error later.
bool saysThatMoreFollow(const AttributeMap& attributes) {
  const auto more = attributes.find(MessageAttributes::UnCompressedSize);
  if (more == attributes.end()) return false;
  const auto* size = std::get_if<long>(&more->second);
  return size == nullptr || *size > 0;
}

}  // namespace

ReceiveDataHelper::ReceiveDataHelper(const ReceiveCallback& callback) : _callback(callback) {}

ReceiveDataHelper::~ReceiveDataHelper() = default;

bool ReceiveDataHelper::isChunkAssembleNeeded(const AttributeMap& attributes) {
  const auto found = attributes.find(MessageAttributes::CompressionType);
  return found != attributes.end() && std::get<std::string>(found->second) == constants::Chunk;
}

void ReceiveDataHelper::assembleAndProcess(const std::uint8_t* data, std::size_t size,
                                           const std::string& messageId, AttributeMap& attributes) {
  logger.log(Severity::setup, tag, "Got data chunk, size: ", size, ", msgID: ", messageId,
             ", _msgChunks.size before adding: ", _msgChunks.size());
  if (!isChunkAssembleNeeded(attributes)) {
    _callback(data, size, messageId, attributes);
    return;
  }
  const bool isAlone = _msgChunks.empty() && !saysThatMoreFollow(attributes);
  if (!isAlone) _msgChunks.insert(_msgChunks.end(), data, data + size);
  const auto more = attributes.find(MessageAttributes::UnCompressedSize);
  if (more != attributes.end()) {
    const long nextChunkSize = std::get<long>(more->second);
    logger.log(Severity::setup, tag, " nextChunkSize: ", nextChunkSize);
    if (nextChunkSize > 0) return;
  }
  logger.log(Severity::setup, tag, " Doesn't have more chunks. Calling callback for data size: ",
             isAlone ? size : _msgChunks.size());
  attributes.erase(MessageAttributes::CompressionType);
  if (isAlone) return passOn(data, size, messageId, attributes);
  _callback(_msgChunks.data(), _msgChunks.size(), messageId, attributes);
  _msgChunks.clear();
}

/// A payload of one chunk needs no copy, unless the callback fails: then its bytes stay, like those of
/// others.
void ReceiveDataHelper::passOn(const std::uint8_t* data, std::size_t size, const std::string& messageId,
                               AttributeMap& attributes) {
  try {
    _callback(data, size, messageId, attributes);
  } catch (...) {
    _msgChunks.assign(data, data + size);
    throw;
  }
}

}  // namespace remote_connectivity::asyncio::util
