#pragma once

#include <utility>

#include "kestreldata/Export.hpp"

namespace kestreldata::detail {

struct Body;

/// Counted reference to the storage that copies of an array share. Each object belongs to one thread at a
/// time; distinct objects over one body may be used on different threads.
class KESTRELDATA_EXPORT BodyPointer {
 public:
  BodyPointer() noexcept = default;
  /// Takes the one reference that a new body is born with.
  explicit BodyPointer(Body* body) noexcept : _body(body) {}
  BodyPointer(const BodyPointer& other) noexcept;
  BodyPointer(BodyPointer&& other) noexcept : _body(std::exchange(other._body, nullptr)) {}
  BodyPointer& operator=(BodyPointer other) noexcept {
    std::swap(_body, other._body);
    return *this;
  }
  ~BodyPointer() {
    if (_body != nullptr) release();
  }

  [[nodiscard]] const Body* get() const noexcept { return _body; }

  /// The body, to write to: replaced by a copy first when another reference shares it. Null stays null.
  [[nodiscard]] Body* unshared();

 private:
  void release() noexcept;

  Body* _body = nullptr;
};

}  // namespace kestreldata::detail
