#include "sequencing/PayloadSequencer.hpp"

#include <algorithm>
#include <charconv>
#include <new>

#include "sequencing/ChunkMark.hpp"

namespace kestrel::streams {

namespace {

constexpr std::size_t mostGone = 256;

std::string nameOf(std::uint64_t producer) {
  char buffer[20];
  return "producer " + std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, producer, 16).ptr);
}

std::string missingText(std::uint64_t count, std::uint64_t producer) {
  return std::to_string(count) + " messages of " + nameOf(producer) + " are missing";
}

}  // namespace

void PayloadSequencer::accept(Frame frame) {
  _latest = std::max(_latest, frame.arrival);
  if (frame.stamp.version != Stamp::currentVersion) {
    settle(frame.receipt);
    return lose(1, "a message has a stamp of version " + std::to_string(frame.stamp.version) +
                       ", only version " + std::to_string(Stamp::currentVersion) + " is understood");
  }
  Intake& intake = intakeOf(frame.stamp.producer);
  if (!follow(intake, frame) || isUnwanted(intake, frame)) return;
  if (const std::string fault = faultOf(intake, frame); !fault.empty()) return refuse(intake, frame, fault);
  if (!intake.open) moveTo(_idle, intake);
  const bool isWhole = !frame.stamp.chunked || (frame.stamp.last && frame.stamp.chunkIndex == 0);
  if (!isWhole) return join(intake, std::move(frame));
  if (frame.stamp.chunked && intake.open)
    giveUp(intake, 0, "a payload of " + nameOf(intake.id) + " was left unfinished");
  _actions.emplace_back(Deliver{std::move(frame)});
}

std::optional<PayloadSequencer::Action> PayloadSequencer::next() {
  constexpr std::size_t keptCapacity = 64;
  if (_given < _actions.size()) return std::move(_actions[_given++]);
  _given = 0;
  _actions.clear();
  if (_actions.capacity() > keptCapacity) _actions = std::vector<Action>();
  return std::nullopt;
}

PayloadSequencer::Intake& PayloadSequencer::intakeOf(std::uint64_t producer) {
  const auto found = _producers.find(producer);
  if (found != _producers.end()) return found->second;
  if (_producers.size() >= _limits.producers) makeSpace();
  Intake& intake = _producers[producer];
  intake.id = producer;
  intake.order = &_idle;
  intake.place = _idle.insert(_idle.end(), producer);
  return intake;
}

void PayloadSequencer::moveTo(Order& order, Intake& intake) {
  order.splice(order.end(), *intake.order, intake.place);
  intake.order = &order;
}

/// Whoever is forgotten may be heard again, and is then not to be taken for one that has just begun.
void PayloadSequencer::makeSpace() {
  if (_idle.empty()) return;
  _producers.erase(_idle.front());
  _idle.pop_front();
  if (_begun) _begun = std::max(*_begun, _latest);
}

/// Looks at the number of a frame; returns whether it is to be delivered.
bool PayloadSequencer::follow(Intake& intake, Frame& frame) {
  using enum SequenceTrack::Kind;
  const std::uint64_t number = frame.stamp.sequence;
  const auto step = intake.numbers.arrived(number, frame.stamp.refusedBefore);
  if (step.kind == next) {
    advance(intake, frame, step.missing);
    return true;
  }
  const auto message = [&] { return "message " + std::to_string(number) + " of " + nameOf(intake.id); };
  if (step.kind == back) {
    giveUp(intake, 0, message() + " came after later ones, which were not its producer's then");
    return true;
  }
  // While the original of a copy may still be undelivered, settling the copy could lose both.
  const bool mayBeHeld = step.kind == copy && intake.open && number >= intake.open->firstNumber();
  if (!mayBeHeld) settle(frame.receipt);
  if (step.kind == copy) _actions.emplace_back(Copy{});
  if (step.kind == early) lose(1, message() + " came after later ones");
  if (step.kind == unbelieved) lose(1, message() + " is too far ahead of those before it to be believed");
  return false;  // and one that is late has been counted as missing
}

/// The frame is the producer's next one, after so many that are missing.
void PayloadSequencer::advance(Intake& intake, const Frame& frame, std::uint64_t missing) {
  const Stamp& stamp = frame.stamp;
  if (stamp.sequence == 1 || stamp.age >= 0) {
    std::optional<TimePoint> began;
    if (stamp.age >= 0) began = frame.earliest - std::chrono::milliseconds(stamp.age);
    const std::uint64_t before = intake.numbers.first() - 1;
    const bool isFirst = before + 1 == stamp.sequence;
    judgeBeginning(intake, before - (isFirst ? std::min<std::uint64_t>(before, stamp.refusedBefore) : 0),
                   began);
  }
  if (missing > 0) {
    giveUp(intake, missing, missingText(missing, intake.id));
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
  return frame.stamp.chunked ? chunkFaultOf(intake, frame) : std::string();
}

std::string PayloadSequencer::chunkFaultOf(const Intake& intake, const Frame& frame) const {
  const Stamp& stamp = frame.stamp;
  const bool continues = intake.open && intake.open->payload() == stamp.payload;
  if (stamp.chunkIndex == 0 && !continues) return {};
  if (!continues) return "the beginning of a payload of " + nameOf(stamp.producer) + " is missing";
  if (stamp.chunkIndex != intake.open->nextIndex()) {
    return "piece " + std::to_string(intake.open->nextIndex()) + " of a payload was expected, piece " +
           std::to_string(stamp.chunkIndex) + " came";
  }
  if (frame.size > _limits.payloadBytes - intake.open->bytes()) {
    return "a payload exceeds " + std::to_string(_limits.payloadBytes) + " bytes";
  }
  return {};
}

void PayloadSequencer::refuse(Intake& intake, Frame& frame, const std::string& why) {
  giveUp(intake, 1, why);
  if (frame.stamp.chunked) intake.dropped = frame.stamp.last ? 0 : frame.stamp.payload;
  settle(frame.receipt);
}

void PayloadSequencer::join(Intake& intake, Frame frame) {
  const bool last = frame.stamp.last;
  if (frame.stamp.chunkIndex == 0) {
    if (intake.open) giveUp(intake, 0, "a payload of " + nameOf(intake.id) + " was left unfinished");
    intake.open.emplace(frame.stamp.payload, frame.stamp.sequence);
    intake.dropped = 0;
  } else {
    remove(intake);
  }
  if (!add(intake, frame)) {
    const std::string bytes = std::to_string(intake.open->bytes());
    return refuse(intake, frame, "there is no memory for a payload of more than " + bytes + " bytes");
  }
  ++_heldMessages;
  if (!last) return makeRoom();
  _actions.emplace_back(Deliver{close(intake).whole()});
}

/// Adds a piece to the payload that arrives, and that to the sums; returns false, and leaves the piece, where
/// memory has run out.
bool PayloadSequencer::add(Intake& intake, Frame& frame) {
  bool taken = true;
  try {
    intake.open->add(frame);
  } catch (const std::bad_alloc&) {
    taken = false;
  }
  moveTo(_assembling, intake);
  enter(intake);
  return taken;
}

void PayloadSequencer::enter(const Intake& intake) {
  _sizes.emplace(intake.open->cost(), intake.id);
  _held += intake.open->cost();
}

void PayloadSequencer::remove(const Intake& intake) {
  _sizes.erase({intake.open->cost(), intake.id});
  _held -= intake.open->cost();
}

void PayloadSequencer::makeRoom() {
  while (_held > _limits.heldBytes) {
    const std::uint64_t largest = _sizes.rbegin()->second;
    giveUp(_producers.at(largest), 0,
           "unfinished payloads take more than " + std::to_string(_limits.heldBytes) +
               " bytes, and the largest one, of " + nameOf(largest) + ", is given up");
  }
}

void PayloadSequencer::tick(TimePoint now) {
  while (!_assembling.empty()) {
    Intake& intake = _producers.at(_assembling.front());
    if (now < intake.open->heard() + _limits.silence) return;
    giveUp(intake, 0, "a payload of " + nameOf(intake.id) + " fell silent before its end");
  }
}

std::optional<TimePoint> PayloadSequencer::deadline() const {
  if (_assembling.empty()) return std::nullopt;
  return _producers.at(_assembling.front()).open->heard() + _limits.silence;
}

void PayloadSequencer::excuse(Clock::duration time) {
  for (const std::uint64_t producer : _assembling) _producers.at(producer).open->excuse(time);
}

void PayloadSequencer::producerReached(std::uint64_t producer, std::uint64_t last,
                                       std::optional<TimePoint> began, TimePoint now) {
  if (last == 0) return;  // who has sent nothing says nothing of how it began
  _latest = std::max(_latest, now);
  Intake& intake = intakeOf(producer);
  const std::uint64_t heardFirst = intake.numbers.first();
  const auto step = intake.numbers.told(last);
  if (step.kind == SequenceTrack::Kind::unbelieved) {
    return lose(0, nameOf(producer) + " is said to have sent more than can be believed");
  }
  if (step.missing > 0) giveUp(intake, step.missing, missingText(step.missing, producer));
  judgeBeginning(intake, heardFirst == 0 ? last : heardFirst - 1, began);
}

/// A first number above 1 is a gap only if the producer has begun while this consumer was there.
void PayloadSequencer::judgeBeginning(Intake& intake, std::uint64_t unheard, std::optional<TimePoint> began) {
  if (intake.beginningKnown) return;
  intake.beginningKnown = true;
  if (unheard == 0 || unheard > SequenceTrack::longestJump || !began || !_begun || *began < *_begun) return;
  lose(unheard, missingText(unheard, intake.id));
}

void PayloadSequencer::producerVanished(std::uint64_t producer) {
  const auto found = _producers.find(producer);
  if (found == _producers.end()) return;
  Intake& intake = found->second;
  if (intake.open) giveUp(intake, 0, nameOf(producer) + " went before the end of its payload");
  moveTo(_gone, intake);
  if (_gone.size() <= mostGone) return;
  _producers.erase(_gone.front());
  _gone.pop_front();
  if (_begun) _begun = std::max(*_begun, _latest);
}

void PayloadSequencer::payloadAbandoned(std::uint64_t producer) {
  const auto found = _producers.find(producer);
  if (found == _producers.end() || !found->second.open) return;
  giveUp(found->second, 0, nameOf(producer) + " could not send the rest of its payload");
}

/// Drops the unfinished payload, if there is one, and reports all that is lost at once.
void PayloadSequencer::giveUp(Intake& intake, std::uint64_t lostBefore, const std::string& why) {
  std::uint64_t pieces = 0;
  if (intake.open) {
    PayloadAssembly torn = close(intake);
    torn.settleAll();
    intake.dropped = torn.payload();
    pieces = torn.pieces();
  }
  lose(lostBefore + pieces, why);
}

PayloadAssembly PayloadSequencer::close(Intake& intake) {
  remove(intake);
  PayloadAssembly closed = std::move(*intake.open);
  intake.open.reset();
  _heldMessages -= closed.pieces();
  moveTo(_idle, intake);
  return closed;
}

void PayloadSequencer::lose(std::uint64_t messages, std::string text) {
  if (messages == 0 && text.empty()) return;
  _actions.emplace_back(Loss{messages, std::move(text)});
}

}  // namespace kestrel::streams
