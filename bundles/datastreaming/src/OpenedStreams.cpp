#include "src/OpenedStreams.hpp"

#include <algorithm>

namespace kestrel::streams {

using datastreaming::StreamStatistics;

namespace {

/// Whether nobody but the two lists below holds it. A transport that looks it up just now makes this false,
/// and the stream is kept until the next time.
bool ended(const std::shared_ptr<StreamContext>& context) {
  return context.use_count() == (context->id.empty() ? 1 : 2);
}

void addTo(StreamStatistics& sum, const StreamStatistics& part) {
  sum.messagesSent += part.messagesSent;
  sum.bytesSent += part.bytesSent;
  sum.messagesReceived += part.messagesReceived;
  sum.bytesReceived += part.bytesReceived;
  sum.payloadsReceived += part.payloadsReceived;
  sum.refused += part.refused;
  sum.lost += part.lost;
  sum.copies += part.copies;
  sum.reconnects += part.reconnects;
  if (!part.lastError.empty()) sum.lastError = part.lastError;
  ++sum.endedStreams;
}

}  // namespace

std::shared_ptr<StreamContext> OpenedStreams::find(const std::string& id) const {
  const auto known = _named.find(id);
  return known == _named.end() ? nullptr : known->second;
}

void OpenedStreams::add(const std::shared_ptr<StreamContext>& context) {
  if (!context->id.empty() && !_named.emplace(context->id, context).second) return;
  _opened.push_back(context);
  if (_opened.size() >= _sweepAt) sumUpOldest();
}

/// Leaves that many ended streams, and looks again after as many more were opened, so that opening stays
/// cheap.
void OpenedStreams::sumUpOldest() {
  const auto count = static_cast<std::size_t>(std::count_if(_opened.begin(), _opened.end(), &ended));
  std::size_t surplus = count - std::min(count, keptEnded);
  std::erase_if(_opened, [&](const auto& context) {
    if (surplus == 0 || !ended(context)) return false;
    --surplus;
    addTo(_summedUp, context->counters.snapshot({}));
    _named.erase(context->id);
    return true;
  });
  _sweepAt = _opened.size() + keptEnded;
}

std::vector<StreamStatistics> OpenedStreams::statistics() const {
  std::vector<StreamStatistics> result;
  result.reserve(_opened.size() + 1);
  for (const auto& context : _opened) result.push_back(context->counters.snapshot(context->id));
  if (_summedUp.endedStreams > 0) result.push_back(_summedUp);
  return result;
}

}  // namespace kestrel::streams
