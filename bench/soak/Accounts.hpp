#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Journal.hpp"
#include "Outage.hpp"
#include "Plan.hpp"

namespace soak {

/// What is missing of one kind of traffic, and what the statistics say of it.
struct Reported {
  std::uint64_t arrays = 0;   ///< lost and reported
  std::uint64_t pieces = 0;   ///< at least so many messages, of all that is missing
  std::uint64_t refused = 0;  ///< messages, by the statistics of all ends
  std::uint64_t givenUp = 0;  ///< lost by the statistics of their senders
  std::uint64_t lost = 0;     ///< by those of the receivers, to whom what was given up is a gap

  std::uint64_t counted = 0;  ///< what both ends have counted, once
};

/// What became of all that one transport was given.
struct Verdict {
  std::uint64_t sent = 0;
  std::uint64_t right = 0;
  std::uint64_t wrong = 0;       ///< content, text or attributes that no sender gave
  std::uint64_t disordered = 0;  ///< behind a later one of the same sender
  std::uint64_t twiceAllowed = 0;
  std::uint64_t twice = 0;
  std::uint64_t lostReported = 0;
  std::uint64_t lostByKill = 0;        ///< the last messages of a sender that was killed
  std::uint64_t lostWithReceiver = 0;  ///< what a receiver that ended had not been given yet, memory and live
  std::uint64_t lostUnseen = 0;        ///< the last ones of a sender that ended within an outage
  std::uint64_t lostUnreported = 0;
  std::uint64_t answered = 0;
  std::uint64_t failedInOutage = 0;
  std::uint64_t failedWithMessenger = 0;  ///< which was destroyed before the response could come
  std::uint64_t failedReported = 0;
  std::uint64_t failedUnreported = 0;
  std::uint64_t misanswered = 0;
  std::uint64_t hanging = 0;  ///< requests of a process that lives and that have not ended
  std::map<Lane, Reported> reportedOn{};
  std::vector<std::string> complaints;  ///< one line for each stream that misses something unexplained
};

/// Puts together what all processes have written about one transport. One thread.
class Accounts {
 public:
  explicit Accounts(Transport transport) : _transport(transport) {}

  void add(std::uint32_t process, const Record& record);
  void killed(std::uint32_t process, std::int64_t time) { _killed[process] = time; }
  void ended(std::uint32_t process, std::int64_t time) { _ended[process] = time; }
  /// The process that is one end of all traffic.
  void residentIs(std::uint32_t process) { _resident = process; }
  void outage(const Outage& outage) { _outages.push_back(outage); }

  /// Messages that have not come and requests that have not ended.
  [[nodiscard]] std::uint64_t open() const;
  [[nodiscard]] std::int64_t lastEvent() const { return _lastEvent; }
  [[nodiscard]] Verdict verdict() const;

 private:
  using Id = std::uint64_t;  // of a receiver, process included

  struct Holder {
    Id receiver = 0;
    std::int64_t time = 0;
  };
  struct Sent {
    std::int64_t time = 0;
    std::uint64_t pieces = 1;
  };
  struct Missing {
    std::uint64_t arrays = 0;
    std::uint64_t pieces = 0;
    std::uint64_t unheard = 0;  // of the pieces: before the first message of their sender that came
    std::string examples{};
  };
  struct Repeat {
    Holder former, next;
    Lane lane;
  };
  struct Request {
    std::uint32_t process = 0;
    Lane lane = Lane::ask;
    std::int64_t time = 0;
  };
  struct Sender {
    std::uint32_t process = 0;
    Lane lane = Lane::steady;
    std::uint64_t highestSent = 0;
    std::uint64_t highestReceived = 0;
    std::int64_t closed = 0;
    std::map<std::uint64_t, Sent> missing{};
    std::set<std::uint64_t> early{};       // read before the record of their sending
    std::map<Id, std::uint64_t> lastOf{};  // the highest number that each receiver got
    std::map<Id, std::uint64_t> newest{};  // the last number that each receiver got
    std::vector<Holder> holders{};         // who got each number last
  };
  struct Receiver {
    Lane lane = Lane::steady;
    std::uint32_t process = 0;
    std::int64_t opened = 0;
    std::int64_t closing = 0;
    std::int64_t left = 0;
  };
  enum class Fate { killed, withReceiver, unseen, unexplained };

  void addReceived(Id receiver, const Record& record);
  [[nodiscard]] bool mayRepeat(const Repeat& repeat) const;
  [[nodiscard]] Fate fateOf(const Sender& sender, std::uint64_t number, std::int64_t time) const;
  [[nodiscard]] static bool heardBefore(const Sender& sender, std::uint64_t number);
  [[nodiscard]] bool endedUnseen(const Sender& sender, std::int64_t time) const;
  [[nodiscard]] bool leftWithReceiver(const Sender& sender, std::uint64_t number, std::int64_t time) const;
  [[nodiscard]] const std::pair<const Id, Receiver>* receiverOf(Lane lane, std::int64_t time) const;
  [[nodiscard]] bool inOutage(std::uint32_t process, std::int64_t from, std::int64_t to) const;
  [[nodiscard]] bool serverFailed(std::int64_t from, std::int64_t to) const;
  [[nodiscard]] std::int64_t endOf(const Receiver& receiver) const;
  [[nodiscard]] std::int64_t killTime(std::uint32_t process) const;
  void judgeLosses(Verdict& verdict) const;
  void judgeFailures(Verdict& verdict) const;
  void judgeLane(Lane lane, const Missing& missing, Verdict& verdict) const;
  [[nodiscard]] Reported reportedOn(Lane lane, std::uint64_t unheard = 0) const;

  const Transport _transport;
  std::map<std::uint64_t, Sender> _senders;
  std::map<Id, Receiver> _receivers;
  std::map<Lane, std::vector<Id>> _onLane;  // the receivers in their order
  std::map<std::pair<Id, Lane>, std::pair<std::uint64_t, std::uint64_t>> _reports;  // refused, lost
  std::map<std::pair<std::uint64_t, std::uint64_t>, Request> _asked;
  std::vector<Request> _failed;
  std::vector<Repeat> _repeated;
  std::map<std::uint32_t, std::int64_t> _killed;
  std::map<std::uint32_t, std::int64_t> _ended;
  std::vector<Outage> _outages;
  std::uint32_t _resident = 0;
  std::int64_t _lastEvent = 0;
  Verdict _counts;
};

}  // namespace soak
