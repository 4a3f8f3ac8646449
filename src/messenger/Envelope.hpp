#pragma once

#include <kestreldata/Array.hpp>
#include <kestreldata/ArrayFactory.hpp>

#include <string>

#include "remote_connectivity/asyncio/util/DataStruct.hpp"
#include "remote_connectivity/asyncio/util/KDAHelper.hpp"

namespace remote_connectivity::asyncio::util {

/// Builds the cell arrays that messages travel in. Immutable after construction: safe for several threads.
class EnvelopeBuilder {
 public:
  /// The factory must outlive the builder.
  explicit EnvelopeBuilder(kestreldata::ArrayFactory& factory);

  /// 1x3: "send", data, id.
  [[nodiscard]] kestreldata::Array send(const DataStruct& message) const;

  /// 1x4: "request", UUID, data, id.
  [[nodiscard]] kestreldata::Array request(const std::string& uuid, const DataStruct& message) const;

  /// 4x1: "requestResponse", the request's UUID element, data, id.
  [[nodiscard]] kestreldata::Array response(const kestreldata::Array& uuid, const DataStruct& answer) const;

  /// The same where nobody answers: the label is a string scalar and the data an empty array.
  [[nodiscard]] kestreldata::Array emptyResponse(const kestreldata::Array& uuid) const;

 private:
  kestreldata::ArrayFactory& _factory;
  kestreldata::Array _sendLabel;           // string scalar
  kestreldata::Array _requestLabel;        // char array
  kestreldata::Array _responseLabel;       // char array
  kestreldata::Array _emptyResponseLabel;  // string scalar
};

/// One received message, taken apart.
struct Incoming {
  enum class Kind { send, request, response };

  Kind kind = Kind::send;
  kestreldata::Array uuid;  ///< as received; requests and responses only
  std::string uuidText;     ///< its text
  DataStruct message;       ///< without the attributes, which travel beside the envelope
};

/// Takes an envelope apart. Throws std::runtime_error for one that is malformed, and what the array library
/// throws for text that is not 7-bit.
[[nodiscard]] Incoming openEnvelope(const kestreldata::Array& envelope, KDAHelper& helper);

}  // namespace remote_connectivity::asyncio::util
