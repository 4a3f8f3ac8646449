#include "Accounts.hpp"

#include <algorithm>

namespace soak {

namespace {

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
      if (sender.early.erase(record.number) == 0) sender.missing.emplace(record.number, record.time);
      return;
    }
    case Kind::unsent:
      _counts.sent -= _senders[record.sender].missing.erase(record.number);
      return;
    case Kind::closed:
      _senders[record.sender].closed = record.time;
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
      _asked[{record.sender, record.number}] = process;
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
      ++_counts.failed;
      break;
  }
  _asked.erase({record.sender, record.number});
}

void Accounts::addReceived(Id receiver, const Record& record) {
  Sender& sender = _senders[record.sender];
  const std::uint64_t number = record.number;
  const bool known = number <= sender.highestSent;
  const bool first = known ? sender.missing.erase(number) > 0 : sender.early.insert(number).second;
  if (!first) {
    sender.newest[receiver] = number;
    _repeated.emplace_back(receiver, record);
    return;
  }
  ++_counts.right;
  if (number < sender.newest[receiver]) ++_counts.disordered;
  sender.newest[receiver] = number;
  sender.highestReceived = std::max(sender.highestReceived, number);
  auto& last = sender.lastOf[receiver];
  last = std::max(last, number);
}

/// A durable message may come again to a receiver whose predecessor could not say what it had got.
bool Accounts::mayRepeat(Id receiver, const Record& record) const {
  if (_transport != Transport::durable) return false;
  const auto& receivers = _onLane.at(record.lane);
  return std::any_of(receivers.begin(), receivers.end(), [&](Id id) {
    const Receiver& former = _receivers.at(id);
    if (id == receiver || former.opened >= record.time) return false;
    if (former.left == 0) return killTime(former.process) > 0;
    return former.left <= record.time && inOutage(former.closing, former.left);
  });
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

bool Accounts::inOutage(std::int64_t from, std::int64_t to) const {
  return std::any_of(_outages.begin(), _outages.end(),
                     [&](const auto& outage) { return outage.first <= to && outage.second >= from; });
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
  if (_transport == Transport::durable) return processEnd > 0 && inOutage(time, processEnd);
  return _transport == Transport::live && sender.closed > 0 && inOutage(time, sender.closed);
}

/// Who had it to take: live, the last receiver that had begun when it was sent; in memory, which keeps what
/// comes in between, the first one that had not ended by then.
const std::pair<const Accounts::Id, Accounts::Receiver>* Accounts::receiverOf(Lane lane,
                                                                              std::int64_t time) const {
  const std::pair<const Id, Receiver>* found = nullptr;
  const auto receivers = _onLane.find(lane);
  if (receivers == _onLane.end()) return nullptr;
  for (const Id id : receivers->second) {
    const auto& item = *_receivers.find(id);
    if (_transport == Transport::memory && (endOf(item.second) == 0 || endOf(item.second) >= time))
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

std::uint64_t Accounts::reportedOn(Lane lane) const {
  std::uint64_t sum = 0;
  for (const auto& [whose, counts] : _reports) {
    if (whose.second == lane) sum += counts.first + counts.second;
  }
  return sum;
}

void Accounts::judgeLosses(Verdict& verdict) const {
  std::map<Lane, std::uint64_t> missing;
  std::map<Lane, std::string> examples;
  for (const auto& [id, sender] : _senders) {
    for (const auto& [number, time] : sender.missing) {
      const Fate fate = fateOf(sender, number, time);
      if (fate == Fate::killed) ++verdict.lostByKill;
      if (fate == Fate::unseen) ++verdict.lostUnseen;
      if (fate == Fate::withReceiver) ++verdict.lostWithReceiver;
      if (fate != Fate::unexplained) continue;
      ++missing[sender.lane];
      auto& text = examples[sender.lane];
      if (text.size() > 200) continue;
      text += " " + std::to_string(sender.process) + "/" + std::to_string(id & 0xffffffff) + ":" +
              std::to_string(number) + "(of " + std::to_string(sender.highestSent) +
              (number > sender.highestReceived ? ", at the end)" : ")");
    }
  }
  for (const auto& [lane, count] : missing) judgeLane(lane, count, examples[lane], verdict);
}

void Accounts::judgeLane(Lane lane, std::uint64_t missing, const std::string& example,
                         Verdict& verdict) const {
  const std::uint64_t reported = std::min(missing, reportedOn(lane));
  verdict.lostReported += reported;
  verdict.reportedOn[lane] = reported;
  verdict.lostUnreported += missing - reported;
  if (missing == reported) return;
  verdict.complaints.push_back(streamOf(_transport, lane) + ": " + std::to_string(missing) +
                               " missing, refused or lost by the statistics " +
                               std::to_string(reportedOn(lane)) + "; process/sender:number" + example);
}

Verdict Accounts::verdict() const {
  Verdict verdict = _counts;
  judgeLosses(verdict);
  for (const auto& [receiver, record] : _repeated) {
    ++(mayRepeat(receiver, record) ? verdict.twiceAllowed : verdict.twice);
  }
  for (const auto& [request, process] : _asked) {
    if (killTime(process) == 0) ++verdict.hanging;
  }
  return verdict;
}

}  // namespace soak
