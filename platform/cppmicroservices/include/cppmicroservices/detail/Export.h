#pragma once

#define CPPMICROSERVICES_EXPORT __attribute__((visibility("default")))
#define CPPMICROSERVICES_LOCAL __attribute__((visibility("hidden")))
