#pragma once

#include <any>
#include <concepts>
#include <functional>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "cppmicroservices/detail/Export.h"

namespace cppmicroservices {

class Any;

namespace detail {

template <class T>
concept Printable = requires(std::ostream& out, const T& value) {
  out << value;
};

/// Appends the value as filters and listings show it: elements of a vector in brackets, nothing for a type
/// that has no text form.
template <class T>
void printValue(std::ostream& out, const T& value) {
  if constexpr (Printable<T>) {
    out << value;
  }
}
void printValue(std::ostream& out, const Any& value);
template <class T>
void printValue(std::ostream& out, const std::vector<T>& values) {
  const char* separator = "";
  out << '[';
  for (const auto& value : values) {
    out << std::exchange(separator, ",");
    printValue(out, value);
  }
  out << ']';
}

}  // namespace detail

/// A copyable value of any type. Distinct objects may be used by different threads.
class Any {
 public:
  Any() = default;
  template <class T>
  requires(!std::same_as<T, Any>)
      Any(const T& value)  // NOLINT(google-explicit-constructor): properties are written as plain values
      : _value(value), _print([](std::ostream& out, const std::any& held) {
          detail::printValue(out, *std::any_cast<T>(&held));
        }) {
    static_assert(!std::is_array_v<T>, "hold a std::string, not a string literal");
  }

  [[nodiscard]] bool Empty() const { return !_value.has_value(); }
  [[nodiscard]] const std::type_info& Type() const { return _value.type(); }

  /// The text form of the value; empty for an empty object.
  [[nodiscard]] std::string ToString() const {
    std::ostringstream out;
    detail::printValue(out, *this);
    return out.str();
  }

 private:
  using Print = void (*)(std::ostream&, const std::any&);

  template <class T>
  friend const T* any_cast(const Any* operand);
  template <class T>
  friend T* any_cast(Any* operand);
  friend void detail::printValue(std::ostream& out, const Any& value);

  std::any _value;
  Print _print = nullptr;
};

inline void detail::printValue(std::ostream& out, const Any& value) {
  if (value._print != nullptr) {
    value._print(out, value._value);
  }
}

/// The object holds another type than the one asked for.
class CPPMICROSERVICES_EXPORT BadAnyCastException : public std::bad_cast {
 public:
  explicit BadAnyCastException(std::string message = {}) : _message(std::move(message)) {}
  [[nodiscard]] const char* what() const noexcept override { return _message.c_str(); }

 private:
  std::string _message;
};

/// The value if it has exactly that type, else a null pointer.
template <class T>
const T* any_cast(const Any* operand) {
  return operand == nullptr ? nullptr : std::any_cast<T>(&operand->_value);
}
template <class T>
T* any_cast(Any* operand) {
  return operand == nullptr ? nullptr : std::any_cast<T>(&operand->_value);
}

/// The value; throws BadAnyCastException if it has another type.
template <class T>
const T& ref_any_cast(const Any& operand) {
  if (const T* value = any_cast<T>(&operand)) {
    return *value;
  }
  throw BadAnyCastException(std::string("expected a value of type ") + typeid(T).name() + ", found " +
                            operand.Type().name());
}
template <class T>
T any_cast(const Any& operand) {
  return ref_any_cast<std::remove_cvref_t<T>>(operand);
}

}  // namespace cppmicroservices
