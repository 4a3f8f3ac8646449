#pragma once

#include <any>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <unordered_map>
#include <variant>

namespace kestrel::datastreaming {

/// An attribute's value: a signed 64-bit integer (index 0) or a text of any bytes (index 1).
using AttributeValue = std::variant<long, std::string>;

/// What travels beside a message's bytes.
using AttributeMap = std::unordered_map<std::string, AttributeValue>;

/// Settings of the service or of one producer; the keys are those of DataSteamingConfig.
using ConfigurationMap = std::unordered_map<std::string, std::any>;

/// Told of a failure. Runs on a thread of the service, never inside a call of send() and never under a lock
/// of the service. It may send, and it may drop the producer or consumer that it belongs to.
using ErrorCallback = std::function<void(const std::exception& error)>;

/// Given one message: its bytes (valid during the call only), their count, the message's identifier and its
/// attributes, which the callback may change or move from.
using DataCallback = std::function<void(const std::uint8_t* data, std::uint64_t size,
                                        const std::string& messageId, AttributeMap& attributes)>;

}  // namespace kestrel::datastreaming
