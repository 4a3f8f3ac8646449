#include "transports/shared/PayloadSequencer.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

#include "transports/shared/ChunkMark.hpp"

namespace kestrel::streams {

namespace {

std::string nameOf(std::uint64_t producer) {
  char buffer[20];
  return "producer " + std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, producer, 16).ptr);
}

}  // namespace

void PayloadSequencer::accept(Frame frame) {
  if (_nextCheck && frame.arrival >= *_nextCheck) tick(frame.arrival);
  if (frame.stamp.version != Stamp::currentVersion) {
    settle(frame.receipt);
    lose(1, "a message has a stamp of version " + std::to_string(frame.stamp.version) + ", only version " +
                std::to_string(Stamp::currentVersion) + " is understood");
    return;
  }
  Intake& intake = intakeOf(frame);
  if (isLate(intake, frame)) return;
  checkGap(intake, frame.stamp);
  intake.nextSequence = frame.stamp.sequence + 1;
  intake.lastArrival = frame.arrival;
  if (isUnwanted(intake, frame)) return;
  if (const std::string fault = faultOf(intake, frame); !fault.empty()) {
    refuse(intake, frame, fault);
    return;
  }
  if (frame.stamp.chunked) noteChunk(intake, frame);
  _turns.add(std::move(frame));
}

std::optional<PayloadSequencer::Action> PayloadSequencer::next() {
  if (!_losses.empty()) {
    std::optional<Action> action{std::move(_losses.front())};
    _losses.pop_front();
    return action;
  }
  auto entry = _turns.next();
  if (!entry) return std::nullopt;
  if (auto* frame = std::get_if<Frame>(&*entry)) return Deliver{std::move(*frame)};
  return std::get<EndPayload>(*entry);
}

PayloadSequencer::Intake& PayloadSequencer::intakeOf(const Frame& frame) {
  const auto found = _producers.find(frame.stamp.producer);
  if (found != _producers.end()) return found->second;
  if (_producers.size() >= _limits.producers) makeSpace(frame.arrival);
  // What this producer sent before this consumer began was not for it, so the first number is no gap.
  Intake& intake = _producers[frame.stamp.producer];
  intake.id = frame.stamp.producer;
  intake.firstSequence = intake.nextSequence = frame.stamp.sequence;
  return intake;
}

void PayloadSequencer::makeSpace(TimePoint now) {
  const auto removed = std::erase_if(_producers, [&](const auto& item) {
    return !item.second.open && now - item.second.lastArrival >= _limits.forgetAfter;
  });
  if (removed > 0) return;
  auto oldest = _producers.end();
  for (auto item = _producers.begin(); item != _producers.end(); ++item) {
    if (item->second.open) continue;
    if (oldest == _producers.end() || item->second.lastArrival < oldest->second.lastArrival) oldest = item;
  }
  if (oldest != _producers.end()) _producers.erase(oldest);
}

bool PayloadSequencer::isLate(const Intake& intake, Frame& frame) {
  if (frame.stamp.sequence >= intake.nextSequence) return false;
  if (frame.stamp.sequence < intake.firstSequence) {
    settle(frame.receipt);
    lose(1, "message " + std::to_string(frame.stamp.sequence) + " of " + nameOf(intake.id) +
                " came after later ones");
    return true;
  }
  // A copy. While its original may still be undelivered, settling the copy could lose both.
  if (!intake.open && !_turns.hasWaiting(intake.id)) settle(frame.receipt);
  return true;
}

void PayloadSequencer::checkGap(Intake& intake, const Stamp& stamp) {
  const std::uint64_t gap = stamp.sequence - intake.nextSequence;
  const std::uint64_t missing = gap - std::min<std::uint64_t>(gap, stamp.refusedBefore);
  if (missing > 0) {
    giveUp(intake, missing, std::to_string(missing) + " messages of " + nameOf(intake.id) + " are missing");
  } else if (stamp.abandons) {
    payloadAbandoned(intake.id);
  }
}

/// Counts the remaining pieces of a payload that was given up: its loss has been reported.
bool PayloadSequencer::isUnwanted(Intake& intake, Frame& frame) {
  const Stamp& stamp = frame.stamp;
  if (!stamp.chunked || intake.dropped == 0 || intake.dropped != stamp.payload) return false;
  if (stamp.last) intake.dropped = 0;
  settle(frame.receipt);
  lose(1);
  return true;
}

std::string PayloadSequencer::faultOf(const Intake& intake, const Frame& frame) const {
  const ChunkMark mark = readChunkMark(frame.attributes);
  if (!mark.fault.empty()) return mark.fault;
  if (mark.chunk != frame.stamp.chunked || mark.last != frame.stamp.last) {
    return "the stamp of a message contradicts its attributes";
  }
  if (_turns.waitingBytes() > _limits.waitingBytes - std::min(frame.size, _limits.waitingBytes) &&
      _turns.wouldWait(frame.stamp)) {
    return "more than " + std::to_string(_limits.waitingBytes) +
           " bytes would wait for the payload in progress";
  }
  return frame.stamp.chunked ? chunkFaultOf(intake, frame) : std::string();
}

std::string PayloadSequencer::chunkFaultOf(const Intake& intake, const Frame& frame) const {
  const Stamp& stamp = frame.stamp;
  const bool continues = intake.open && intake.payload == stamp.payload;
  if (stamp.chunkIndex == 0 && !continues) return {};
  if (!continues) return "the beginning of a payload of " + nameOf(stamp.producer) + " is missing";
  if (stamp.chunkIndex != intake.nextIndex) {
    return "piece " + std::to_string(intake.nextIndex) + " of a payload was expected, piece " +
           std::to_string(stamp.chunkIndex) + " came";
  }
  if (frame.size > _limits.payloadBytes - std::min(intake.bytes, _limits.payloadBytes)) {
    return "a payload exceeds " + std::to_string(_limits.payloadBytes) + " bytes";
  }
  return {};
}

void PayloadSequencer::refuse(Intake& intake, Frame& frame, const std::string& why) {
  const std::uint64_t torn = intake.open ? tear(intake) : 0;
  if (frame.stamp.chunked) intake.dropped = frame.stamp.last ? 0 : frame.stamp.payload;
  settle(frame.receipt);
  lose(1 + torn, why);
}

void PayloadSequencer::noteChunk(Intake& intake, const Frame& frame) {
  const Stamp& stamp = frame.stamp;
  if (stamp.chunkIndex == 0) {
    if (intake.open) giveUp(intake, 0, "a payload of " + nameOf(intake.id) + " was left unfinished");
    intake.payload = stamp.payload;
    intake.bytes = 0;
  }
  intake.bytes += frame.size;
  intake.nextIndex = stamp.chunkIndex + 1;
  intake.lastChunk = frame.arrival;
  intake.open = !stamp.last;
  intake.dropped = 0;
  const TimePoint silent = frame.arrival + _limits.silence;
  if (intake.open && (!_nextCheck || silent < *_nextCheck)) _nextCheck = silent;
}

void PayloadSequencer::tick(TimePoint now) {
  if (!_nextCheck || now < *_nextCheck) return;
  _nextCheck.reset();
  for (auto& [producer, intake] : _producers) {
    if (!intake.open) continue;
    const TimePoint silent = intake.lastChunk + _limits.silence;
    if (now >= silent) {
      giveUp(intake, 0, "a payload of " + nameOf(producer) + " fell silent before its end");
    } else if (!_nextCheck || silent < *_nextCheck) {
      _nextCheck = silent;
    }
  }
}

void PayloadSequencer::producerVanished(std::uint64_t producer) {
  const auto found = _producers.find(producer);
  if (found == _producers.end()) return;
  if (found->second.open) giveUp(found->second, 0, nameOf(producer) + " went before the end of its payload");
  _producers.erase(found);
}

void PayloadSequencer::payloadAbandoned(std::uint64_t producer) {
  const auto found = _producers.find(producer);
  if (found == _producers.end() || !found->second.open) return;
  giveUp(found->second, 0, nameOf(producer) + " could not send the rest of its payload");
}

void PayloadSequencer::deliveryFailed(const Stamp& stamp) {
  if (!stamp.chunked || stamp.last) return;
  lose(_turns.cutShort(stamp));
  const auto found = _producers.find(stamp.producer);
  if (found == _producers.end()) return;
  Intake& intake = found->second;
  if (!intake.open || intake.payload != stamp.payload) return;
  intake.open = false;
  intake.dropped = stamp.payload;
}

/// Ends the open payload, if there is one, and reports all that is lost at once.
void PayloadSequencer::giveUp(Intake& intake, std::uint64_t lostBefore, const std::string& why) {
  const std::uint64_t torn = intake.open ? tear(intake) : 0;
  lose(lostBefore + torn, why);
}

/// Ends the open payload for the receiver, and returns how many of its pieces go undelivered for that.
std::uint64_t PayloadSequencer::tear(Intake& intake) {
  intake.open = false;
  intake.dropped = intake.payload;
  if (const auto withdrawn = _turns.withdraw(intake.id, intake.payload)) return *withdrawn;
  Stamp stamp;
  stamp.producer = intake.id;
  stamp.payload = intake.payload;
  stamp.chunkIndex = intake.nextIndex;
  stamp.chunked = true;
  _turns.add(EndPayload{stamp});
  return 0;
}

void PayloadSequencer::lose(std::uint64_t messages, std::string text) {
  if (messages == 0 && text.empty()) return;
  _losses.push_back(Loss{messages, std::move(text)});
}

}  // namespace kestrel::streams
