#pragma once

#include <map>
#include <string>

#include "Crew.hpp"
#include "Payload.hpp"

namespace soak {

/// A messenger that sends on a lane and keeps the books of it. One thread.
class Sender {
 public:
  /// What comes to the messenger itself goes nowhere; that stream must be the sender's own.
  Sender(Crew& crew, Lane lane, const std::string& ownStream, unsigned long chunkSize);
  ~Sender();
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  [[nodiscard]] explicit operator bool() const { return _messenger != nullptr; }
  void send(std::uint64_t size);

 private:
  Crew& _crew;
  const Lane _lane;
  const std::uint64_t _chunkSize;
  const std::uint64_t _id;
  std::uint64_t _number = 0;
  Messenger _messenger;
};

/// A messenger that receives from a lane and checks what comes.
class Receiver {
 public:
  using Delay = std::function<void(std::uint64_t size)>;  ///< how long the handler takes

  Receiver(Crew& crew, Lane lane, Delay delay = {});
  ~Receiver();
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

 private:
  void take(const remote_connectivity::asyncio::util::DataStruct& message);
  void write(Record::Kind kind, const Label& label = {});

  Crew& _crew;
  const Lane _lane;
  const std::uint32_t _id;
  const Delay _delay;
  std::map<std::uint64_t, std::uint64_t> _last;  // of each sender; the delivery thread's
  Messenger _messenger;
};

/// Answers the requests of one slot.
class Responder {
 public:
  Responder(Crew& crew, int slot);

 private:
  Messenger _messenger;
};

/// Asks, from several threads at once if need be.
class Requester {
 public:
  Requester(Crew& crew, int slot, unsigned long chunkSize);

  [[nodiscard]] explicit operator bool() const { return _messenger != nullptr; }
  /// Asks and waits; whether it was answered.
  bool ask(std::uint64_t size);
  /// Asks and goes away; the request must end with that. Leaves the requester empty.
  void askAndLeave(std::uint64_t size);

 private:
  Label next(std::uint64_t size);
  void write(Record::Kind kind, const Label& label);

  Crew& _crew;
  const Lane _lane;
  const std::uint64_t _id;
  std::atomic<std::uint64_t> _number{0};
  Messenger _messenger;
};

}  // namespace soak
