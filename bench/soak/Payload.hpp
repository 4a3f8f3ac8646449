#pragma once

#include <optional>
#include <remote_connectivity/asyncio/util/DataStruct.hpp>
#include <string>

#include "Random.hpp"

namespace soak {

/// What a message says of itself. Its bytes, its attributes and its text all follow from this, so that a
/// receiver can tell a whole message from any other.
struct Label {
  std::uint64_t sender = 0;
  std::uint64_t number = 0;  ///< from 1, for each sender
  std::uint64_t size = 0;    ///< bytes

  bool operator==(const Label&) const = default;
};

[[nodiscard]] remote_connectivity::asyncio::util::DataStruct makeMessage(const Label& label);

/// The response to that message: bytes, text and attributes that follow from it and differ from its own.
[[nodiscard]] remote_connectivity::asyncio::util::DataStruct makeResponse(const Label& label);

/// The label of a message; nothing if any part of it is not what the label demands.
[[nodiscard]] std::optional<Label> verified(const remote_connectivity::asyncio::util::DataStruct& message);

[[nodiscard]] bool isResponseTo(const Label& label,
                                const remote_connectivity::asyncio::util::DataStruct& response);

/// Mostly small, now and then tens of megabytes.
[[nodiscard]] std::uint64_t anySize(Random& random);

}  // namespace soak
