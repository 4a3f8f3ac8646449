#pragma once

#include <cppmicroservices/ServiceInterface.h>

#include <string>

/// The service of these tests.
class Greeting {
 public:
  explicit Greeting(std::string text = {}) : _text(std::move(text)) {}
  virtual ~Greeting() = default;
  [[nodiscard]] virtual std::string text() const { return _text; }

 private:
  const std::string _text;
};

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(Greeting, "Greeting")
