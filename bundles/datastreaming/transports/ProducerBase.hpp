#pragma once

#include <kestrel/datastreaming/Producer.hpp>
#include <memory>
#include <optional>
#include <string>

#include "delivery/ErrorOutlet.hpp"
#include "kestrel/callbacks/ThreadSafety.hpp"
#include "sequencing/ProducerStamper.hpp"
#include "transports/StartOnce.hpp"

namespace kestrel::streams {

/// The part of a producer that does not depend on the transport: stamps, refusals, statistics, error reports.
///
/// A derived class is final and calls close() first in its destructor.
class ProducerBase : public datastreaming::Producer {
 public:
  void setErrorCallback(datastreaming::ErrorCallback callback) final;
  [[nodiscard]] std::shared_future<void> start() final;
  std::shared_future<std::string> send(const std::uint8_t* data, std::uint64_t size,
                                       const datastreaming::AttributeMap& attributes) final;

 protected:
  struct Outgoing {
    const Stamp& stamp;
    const std::uint8_t* data;
    std::uint64_t size;
    const datastreaming::AttributeMap& attributes;
  };
  struct Outcome {
    std::optional<std::string> refusal;               ///< why the transport did not take it over
    std::shared_future<std::string> acknowledgement;  ///< of a message taken over
  };

  explicit ProducerBase(std::shared_ptr<StreamContext> context);

  /// Hands a message over without waiting for room. Called under the producer's lock, in the order of the
  /// stamps; it must not report errors, which this class does when the lock is free.
  virtual Outcome transmit(const Outgoing& message) = 0;

  /// A refusal has broken a payload whose first pieces were accepted. Called under the producer's lock.
  virtual void abandonPayload() {}

  /// Opens the way for start(); throws what the future shall hold.
  virtual void open() {}

  /// Closes the error callback's gate.
  void close() { _errors->close(); }

  /// The message has been taken over; its acknowledgement, if one is wanted, is its id.
  [[nodiscard]] static Outcome takenOver(const Stamp& stamp, bool acknowledge);
  /// A future that already holds the empty text, the same for all: nothing is allocated.
  [[nodiscard]] static const std::shared_future<std::string>& emptyAcknowledgement();
  [[nodiscard]] static std::shared_future<std::string> readyAcknowledgement(std::string messageId);
  [[nodiscard]] static std::shared_future<std::string> failedAcknowledgement(const std::string& text);

  [[nodiscard]] const std::shared_ptr<StreamContext>& context() const { return _context; }
  /// For failures that come to light after send() has returned.
  [[nodiscard]] const std::shared_ptr<ErrorOutlet>& errors() const { return _errors; }
  [[nodiscard]] std::uint64_t producerId() const { return _producerId; }

 private:
  struct Refusal {
    std::string text;
    bool report = true;
  };
  std::shared_future<std::string> refuse(const Refusal& refusal);
  std::optional<Refusal> tryTransmit(const Outgoing& message, const ChunkMark& mark,
                                     std::shared_future<std::string>& acknowledgement)
      KESTREL_REQUIRES(_mutex);

  const std::shared_ptr<StreamContext> _context;
  const std::shared_ptr<ErrorOutlet> _errors;
  const std::uint64_t _producerId;

  callbacks::Mutex _mutex;
  ProducerStamper _stamper KESTREL_GUARDED_BY(_mutex);
  StartOnce _start KESTREL_GUARDED_BY(_mutex);
};

}  // namespace kestrel::streams
