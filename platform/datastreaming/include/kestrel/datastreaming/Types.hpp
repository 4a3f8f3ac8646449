#pragma once

#include <any>
#include <concepts>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
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

/// What became of one message that was given to a data callback.
enum class Handling {
  done,      ///< it has been dealt with
  failed,    ///< it cannot be dealt with, and the callback has said why: it is counted as lost, and goes
  notTaken,  ///< nobody has seen it: where messages are stored it stays, elsewhere it is counted as lost
};

/// Given one message: its bytes (valid during the call only), their count, the message's identifier and its
/// attributes, which the callback may change or move from. What it returns for the last piece of a payload
/// holds for the whole payload. A function that returns nothing has dealt with whatever it was given; one
/// that throws has failed, and the service reports what it threw.
class DataCallback {
 public:
  DataCallback() = default;

  template <class Function>
  requires(!std::same_as<std::remove_cvref_t<Function>, DataCallback> &&
           std::invocable<Function&, const std::uint8_t*, std::uint64_t, const std::string&, AttributeMap&>)
      DataCallback(Function function)  // NOLINT(google-explicit-constructor): it stands for any function
      : _call([function = std::move(function)](const std::uint8_t* data, std::uint64_t size,
                                               const std::string& messageId,
                                               AttributeMap& attributes) mutable {
          if constexpr (std::is_void_v<decltype(function(data, size, messageId, attributes))>) {
            function(data, size, messageId, attributes);
            return Handling::done;
          } else {
            return function(data, size, messageId, attributes);
          }
        }) {}

  Handling operator()(const std::uint8_t* data, std::uint64_t size, const std::string& messageId,
                      AttributeMap& attributes) const {
    return _call(data, size, messageId, attributes);
  }
  explicit operator bool() const { return static_cast<bool>(_call); }

 private:
  std::function<Handling(const std::uint8_t*, std::uint64_t, const std::string&, AttributeMap&)> _call;
};

}  // namespace kestrel::datastreaming
