#include "Accounts.hpp"

#include <algorithm>
#include <utility>

namespace soak {

namespace {

constexpr std::int64_t timeToAcknowledge = 10 * second * slowness;  // of a message, on a busy machine
constexpr std::uint64_t mostExamples = 10;
constexpr std::int64_t timeToAnswer = 3 * second * slowness;

std::uint64_t idOf(std::uint32_t process, std::uint32_t receiver) {
  return std::uint64_t{process} << 32 | receiver;
}

}  // namespace

void Accounts::add(std::uint32_t process, const Record& record) {
  using Kind = Record::Kind;
  const Id receiver = idOf(process, record.receiver);
  if (record.kind != Kind::reported) _lastEvent = std::max(_lastEvent, record.time);
  switch (record.kind) {
    case Kind::sent: {
      Sender& sender = _senders[record.sender];
      sender.process = process;
      sender.lane = record.lane;
      sender.highestSent = record.number;
      ++_counts.sent;
      if (sender.early.erase(record.number) == 0)
        sender.missing.emplace(record.number, Sent{record.time, record.value});
      return;
    }
    case Kind::unsent:
      _counts.sent -= _senders[record.sender].missing.erase(record.number);
      return;
    case Kind::closed:
      _senders[record.sender].closed = record.time;
      return;
    case Kind::ready:
      return;
    case Kind::opened:
      _receivers[receiver] = {record.lane, process, record.time, 0, 0};
      _onLane[record.lane].push_back(receiver);
      return;
    case Kind::received:
      return addReceived(receiver, record);
    case Kind::wrong:
      ++_counts.wrong;
      return;
    case Kind::closing:
      _receivers[receiver].closing = record.time;
      return;
    case Kind::left:
      _receivers[receiver].left = record.time;
      return;
    case Kind::asked:
      _asked[{record.sender, record.number}] = {process, record.lane, record.time};
      return;
    case Kind::reported:
      _reports[{receiver, record.lane}] = {record.number, record.value};
      return;
    case Kind::answered:
      ++_counts.answered;
      break;
    case Kind::misanswered:
      ++_counts.misanswered;
      break;
    case Kind::failed:
      _failed.push_back(_asked[{record.sender, record.number}]);
      break;
    case Kind::abandoned:
      ++_counts.failedWithMessenger;
      break;
  }
  _asked.erase({record.sender, record.number});
}

void Accounts::addReceived(Id receiver, const Record& record) {
  Sender& sender = _senders[record.sender];
  const std::uint64_t number = record.number;
  const Holder holder{receiver, record.time};
  if (sender.holders.size() < number) sender.holders.resize(number);
  const Holder former = std::exchange(sender.holders[number - 1], holder);
  const bool known = number <= sender.highestSent;
  const bool first = known ? sender.missing.erase(number) > 0 : sender.early.insert(number).second;
  if (!first) {
    sender.newest[receiver] = number;
    _repeated.push_back({former, holder, record.lane});
    return;
  }
  ++_counts.right;
  if (number < sender.newest[receiver]) ++_counts.disordered;
  sender.newest[receiver] = number;
  sender.highestReceived = std::max(sender.highestReceived, number);
  auto& last = sender.lastOf[receiver];
  last = std::max(last, number);
}

/// A durable message may come again, to somebody else, when the one that had got it could not say so any
/// more, or when the server, which writes acknowledgements down some time later, failed in between.
bool Accounts::mayRepeat(const Repeat& repeat) const {
  if (_transport != Transport::durable || repeat.former.receiver == repeat.next.receiver) return false;
  if (serverFailed(repeat.former.time, repeat.next.time)) return true;
  const auto process = static_cast<std::uint32_t>(repeat.former.receiver >> 32);
  const auto former = _receivers.find(repeat.former.receiver);
  if (former != _receivers.end() && former->second.left > 0) {
    return former->second.left <= repeat.next.time &&
           inOutage(process, former->second.closing, former->second.left);
  }
  const std::int64_t end = killTime(process);
  return end > 0 &&
         (end - repeat.former.time < timeToAcknowledge || inOutage(process, repeat.former.time, end));
}

std::uint64_t Accounts::open() const {
  std::uint64_t count = _asked.size();
  for (const auto& [id, sender] : _senders) count += sender.missing.size();
  return count;
}

std::int64_t Accounts::killTime(std::uint32_t process) const {
  const auto found = _killed.find(process);
  return found == _killed.end() ? 0 : found->second;
}

bool Accounts::inOutage(std::uint32_t process, std::int64_t from, std::int64_t to) const {
  return std::any_of(_outages.begin(), _outages.end(), [&](const Outage& outage) {
    const bool touched =
        outage.process == Outage::everybody || outage.process == process || outage.process == _resident;
    return touched && outage.from <= to && outage.to >= from;
  });
}

bool Accounts::serverFailed(std::int64_t from, std::int64_t to) const {
  return std::any_of(_outages.begin(), _outages.end(), [&](const Outage& outage) {
    return outage.process == Outage::everybody && outage.from >= from && outage.from <= to;
  });
}

/// When it had certainly ended; 0 if it has not.
std::int64_t Accounts::endOf(const Receiver& receiver) const {
  return receiver.left > 0 ? receiver.left : killTime(receiver.process);
}

Accounts::Fate Accounts::fateOf(const Sender& sender, std::uint64_t number, std::int64_t time) const {
  const bool tail = number > sender.highestReceived;
  if (tail && killTime(sender.process) > 0 && sender.closed == 0) return Fate::killed;
  if (tail && endedUnseen(sender, time)) return Fate::unseen;
  if (_transport != Transport::durable && leftWithReceiver(sender, number, time)) return Fate::withReceiver;
  return Fate::unexplained;
}

/// Nobody can tell that something is missing who hears of the sender neither then nor later.
bool Accounts::endedUnseen(const Sender& sender, std::int64_t time) const {
  const auto process = _ended.find(sender.process);
  const std::int64_t processEnd = process == _ended.end() ? killTime(sender.process) : process->second;
  if (_transport == Transport::durable) return processEnd > 0 && inOutage(sender.process, time, processEnd);
  return _transport == Transport::live && sender.closed > 0 && inOutage(sender.process, time, sender.closed);
}

/// Whether anything that it sent earlier has come to anybody.
bool Accounts::heardBefore(const Sender& sender, std::uint64_t number) {
  const auto end =
      sender.holders.begin() + static_cast<std::ptrdiff_t>(std::min(number, sender.holders.size()));
  return std::any_of(sender.holders.begin(), end, [](const Holder& holder) { return holder.receiver != 0; });
}

/// Who had it to take: live, the last receiver that had begun when it was sent; without a server, where what
/// comes in between is kept, the first one that had not ended by then.
const std::pair<const Accounts::Id, Accounts::Receiver>* Accounts::receiverOf(Lane lane,
                                                                              std::int64_t time) const {
  const std::pair<const Id, Receiver>* found = nullptr;
  const auto receivers = _onLane.find(lane);
  if (receivers == _onLane.end()) return nullptr;
  for (const Id id : receivers->second) {
    const auto& item = *_receivers.find(id);
    if (_transport != Transport::live && (endOf(item.second) == 0 || endOf(item.second) >= time))
      return &item;
    if (_transport == Transport::live && item.second.opened <= time) found = &item;
  }
  return found;
}

/// Whether that receiver ended without anything later: the message may have been on its way, or in its queue.
bool Accounts::leftWithReceiver(const Sender& sender, std::uint64_t number, std::int64_t time) const {
  const auto* receiver = receiverOf(sender.lane, time);
  if (receiver == nullptr) return _transport == Transport::live;  // nobody listened yet
  if (endOf(receiver->second) == 0) return false;
  const auto last = sender.lastOf.find(receiver->first);
  return last == sender.lastOf.end() || last->second < number;
}

Reported Accounts::reportedOn(Lane lane, std::uint64_t unheard) const {
  Reported sum;
  for (const auto& [whose, counts] : _reports) {
    if (whose.second != lane) continue;
    sum.refused += counts.first;
    const bool byReceiver = (whose.first & 0xffffffff) != 0;
    (byReceiver ? sum.lost : sum.givenUp) += counts.second;
  }
  // Where both ends stay the gaps are exact; the sender also gives up what was stored without its knowing. Of
  // one that goes, the receivers may not hear at all, and one that comes does not know what came before; nor
  // is it a gap to anybody what a sender gives up before anything of it has come.
  const bool stays = lane == Lane::steady || lane == Lane::flood || lane == Lane::idle;
  const bool exact = _transport == Transport::durable && stays;
  // Between processes a sender counts what a receiver that goes had not dealt with, and the next one what is
  // left of it.
  const bool apart = _transport == Transport::ipc && !stays;
  const std::uint64_t either = apart ? sum.givenUp + sum.lost : std::max(sum.givenUp, sum.lost);
  sum.counted = sum.refused + (exact ? sum.lost + std::min(unheard, sum.givenUp) : either);
  return sum;
}

void Accounts::judgeLosses(Verdict& verdict) const {
  std::map<Lane, Missing> lanes;
  for (const auto& [id, sender] : _senders) {
    for (const auto& [number, sent] : sender.missing) {
      const Fate fate = fateOf(sender, number, sent.time);
      if (fate == Fate::killed) ++verdict.lostByKill;
      if (fate == Fate::unseen) ++verdict.lostUnseen;
      if (fate == Fate::withReceiver) ++verdict.lostWithReceiver;
      if (fate != Fate::unexplained) continue;
      Missing& missing = lanes[sender.lane];
      ++missing.arrays;
      missing.pieces += sent.pieces;
      if (!heardBefore(sender, number)) missing.unheard += sent.pieces;
      if (missing.examples.size() > 200) continue;
      missing.examples += " " + std::to_string(sender.process) + "/" + std::to_string(id & 0xffffffff) + ":" +
                          std::to_string(number) + "(of " + std::to_string(sender.highestSent) +
                          (number > sender.highestReceived ? ", at the end)" : ")");
    }
  }
  for (const auto& [lane, missing] : lanes) judgeLane(lane, missing, verdict);
}

/// Each piece of an array that is missing has been counted somewhere, or the array has not been reported.
void Accounts::judgeLane(Lane lane, const Missing& missing, Verdict& verdict) const {
  Reported reported = reportedOn(lane, missing.unheard);
  const std::uint64_t counted = reported.counted;
  const std::uint64_t silent =
      counted < missing.pieces ? std::min(missing.arrays, missing.pieces - counted) : 0;
  verdict.lostReported += missing.arrays - silent;
  reported.arrays = missing.arrays - silent;
  reported.pieces = missing.pieces;
  verdict.reportedOn[lane] = reported;
  verdict.lostUnreported += silent;
  if (silent == 0) return;
  verdict.complaints.push_back(streamOf(_transport, lane) + ": missing " + std::to_string(missing.arrays) +
                               " arrays of at least " + std::to_string(missing.pieces) +
                               " pieces, refused or lost by the statistics " + std::to_string(counted) +
                               "; process/sender:number" + missing.examples);
}

/// One whose way was clear for long enough has no excuse but a loss that was counted.
void Accounts::judgeFailures(Verdict& verdict) const {
  std::map<Lane, std::uint64_t> unexplained;
  for (const Request& request : _failed) {
    const bool excused = inOutage(request.process, request.time, request.time + timeToAnswer);
    ++(excused ? verdict.failedInOutage : unexplained[request.lane]);
  }
  for (const auto& [lane, failed] : unexplained) {
    const Reported counts = reportedOn(lane);
    const std::uint64_t reported = std::min(failed, counts.counted);
    verdict.failedReported += reported;
    verdict.failedUnreported += failed - reported;
  }
}

Verdict Accounts::verdict() const {
  Verdict verdict = _counts;
  judgeLosses(verdict);
  judgeFailures(verdict);
  for (const Repeat& repeat : _repeated) {
    const bool allowed = mayRepeat(repeat);
    ++(allowed ? verdict.twiceAllowed : verdict.twice);
    if (allowed || verdict.twice > mostExamples) continue;
    const auto name = [](Id id) { return std::to_string(id >> 32) + "/" + std::to_string(id & 0xffffffff); };
    verdict.complaints.push_back(streamOf(_transport, repeat.lane) + ": twice, to " +
                                 name(repeat.former.receiver) + " and after " +
                                 std::to_string((repeat.next.time - repeat.former.time) / (second / 1000)) +
                                 " ms to " + name(repeat.next.receiver) + " (process/receiver)");
  }
  for (const auto& [id, request] : _asked) {
    if (killTime(request.process) == 0) ++verdict.hanging;
  }
  return verdict;
}

}  // namespace soak
