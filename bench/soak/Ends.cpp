#include "Ends.hpp"

#include <algorithm>
#include <iostream>
#include <utility>

namespace soak {

using remote_connectivity::asyncio::util::DataStruct;
using Kind = Record::Kind;
using namespace std::chrono_literals;

namespace {

constexpr unsigned long usualChunk = 500'000;

}  // namespace

Sender::Sender(Crew& crew, Lane lane, const std::string& ownStream, unsigned long chunkSize)
    : _crew(crew),
      _lane(lane),
      _chunkSize(chunkSize),
      _id(crew.newSender()),
      _messenger(crew.make(Crew::End::near, streamOf(crew.transport(), lane), ownStream, chunkSize)) {}

Sender::~Sender() {
  _messenger.reset();
  _crew.journal().write({.kind = Kind::closed, .lane = _lane, .sender = _id});
}

void Sender::send(std::uint64_t size) {
  const Label label{_id, ++_number, size};
  const auto message = makeMessage(label);
  _crew.journal().write({.kind = Kind::sent,
                         .lane = _lane,
                         .sender = _id,
                         .number = label.number,
                         .value = std::max<std::uint64_t>(1, (size + _chunkSize - 1) / _chunkSize)});
  try {
    _messenger->send(message);
  } catch (const std::exception& error) {
    std::cerr << "send() threw: " << error.what() << std::endl;
    _crew.journal().write({.kind = Kind::unsent, .lane = _lane, .sender = _id, .number = label.number});
  }
}

Receiver::Receiver(Crew& crew, Lane lane, Delay delay)
    : _crew(crew), _lane(lane), _id(crew.newReceiver()), _delay(std::move(delay)) {
  const std::string stream = streamOf(crew.transport(), lane);
  _messenger = crew.make(Crew::End::far, stream + "-unused", stream, usualChunk);
  if (!_messenger) return;
  _messenger->setReceiveHandler([this](const DataStruct& message) { take(message); });
  write(Kind::opened);
}

Receiver::~Receiver() {
  if (!_messenger) return;
  write(Kind::closing);
  _messenger.reset();
  write(Kind::left);
}

void Receiver::take(const DataStruct& message) {
  const auto label = verified(message);
  if (!label) {
    std::cerr << "a wrong message: \"" << message.id << "\"" << std::endl;
    return write(Kind::wrong);
  }
  // What is missing has been counted by now, and this process may be killed at any time.
  auto& last = _last[label->sender];
  if (label->number != last + 1) _crew.reportStatistics();
  last = label->number;
  if (_delay) _delay(label->size);
  write(Kind::received, *label);
}

void Receiver::write(Kind kind, const Label& label) {
  _crew.journal().write({.kind = kind,
                         .lane = _lane,
                         .receiver = _id,
                         .sender = label.sender,
                         .number = label.number,
                         .value = label.size});
}

Responder::Responder(Crew& crew, int slot) {
  const RequestStreams streams(crew.transport(), slot);
  _messenger = crew.make(Crew::End::far, streams.reply, streams.ask, usualChunk);
  if (!_messenger) return;
  _messenger->setRequestHandler([](const DataStruct& message) {
    const auto label = verified(message);
    if (!label) std::cerr << "a wrong request: \"" << message.id << "\"" << std::endl;
    return label ? makeResponse(*label) : DataStruct();
  });
}

Requester::Requester(Crew& crew, int slot, unsigned long chunkSize)
    : _crew(crew), _lane(laneOfSlot(slot)), _id(crew.newSender()) {
  const RequestStreams streams(crew.transport(), slot);
  _messenger = crew.make(Crew::End::near, streams.ask, streams.reply, chunkSize);
}

Label Requester::next(std::uint64_t size) {
  return {_id, ++_number, size};
}

void Requester::write(Kind kind, const Label& label) {
  _crew.journal().write(
      {.kind = kind, .lane = _lane, .sender = label.sender, .number = label.number, .value = label.size});
}

bool Requester::ask(std::uint64_t size) {
  const Label label = next(size);
  const auto message = makeMessage(label);
  write(Kind::asked, label);
  try {
    const bool right = isResponseTo(label, _messenger->request(message));
    write(right ? Kind::answered : Kind::misanswered, label);
    return right;
  } catch (const std::exception& error) {
    std::cerr << "a request failed: " << error.what() << std::endl;
    write(Kind::failed, label);
    return false;
  }
}

void Requester::askAndLeave(std::uint64_t size) {
  const Label label = next(size);
  const auto message = makeMessage(label);
  write(Kind::asked, label);
  std::shared_future<DataStruct> future;
  try {
    future = _messenger->asyncRequest(message).first;
  } catch (const std::exception&) {
    return write(Kind::failed, label);
  }
  _messenger.reset();
  if (future.wait_for(5s) != std::future_status::ready) return;  // which counts as hanging
  try {
    write(isResponseTo(label, future.get()) ? Kind::answered : Kind::misanswered, label);
  } catch (const std::exception&) {
    write(Kind::abandoned, label);
  }
}

}  // namespace soak
