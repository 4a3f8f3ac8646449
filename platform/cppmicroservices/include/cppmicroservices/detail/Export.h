#pragma once

#define CPPMICROSERVICES_EXPORT __attribute__((visibility("default")))
