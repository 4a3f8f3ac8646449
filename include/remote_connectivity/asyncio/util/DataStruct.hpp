#pragma once

#include <kestreldata/Array.hpp>

#include <string>
#include <unordered_map>
#include <variant>

#include "remote_connectivity/asyncio/util/Export.hpp"

namespace remote_connectivity::asyncio::util {

/// The attributes beside a payload: each a signed 64-bit integer (index 0) or a text of any bytes (index 1).
using AttributeMap = std::unordered_map<std::string, std::variant<long, std::string>>;

/// One message. A plain value: distinct copies may be used on different threads.
struct REMOTE_CONNECTIVITY_EXPORT DataStruct {
  DataStruct() = default;
  DataStruct(kestreldata::Array data, AttributeMap attributes = {}, std::string id = {});
  DataStruct(const DataStruct&) = default;
  DataStruct(DataStruct&&) = default;
  DataStruct& operator=(const DataStruct&) = default;
  DataStruct& operator=(DataStruct&&) = default;
  ~DataStruct();

  kestreldata::Array data;  ///< the payload; copies share its elements until one is written to
  AttributeMap attributes;  ///< travel beside the payload; large payloads use "COMPRESSIONTYPE" and
                            ///< "UNCOMPRESSEDSIZE" for their own purposes
  std::string id;           ///< free text of 7-bit characters, empty where the sender has none
};

}  // namespace remote_connectivity::asyncio::util
