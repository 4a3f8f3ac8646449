#pragma once

#include <cppmicroservices/ServiceInterface.h>

#include <string>

namespace greeting {

/// What the test bundles offer.
class Greeting {
 public:
  virtual ~Greeting() = default;
  [[nodiscard]] virtual std::string text() const = 0;
};

/// A greeting that does not change.
class FixedGreeting : public Greeting {
 public:
  explicit FixedGreeting(std::string text) : _text(std::move(text)) {}
  [[nodiscard]] std::string text() const override { return _text; }

 private:
  std::string _text;
};

}  // namespace greeting

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(greeting::Greeting, "Greeting")
