#pragma once

#include <cppmicroservices/ServiceInterface.h>

struct Clock {
  virtual ~Clock() = default;
  [[nodiscard]] virtual int hour() const = 0;
};

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(Clock, "Clock")
