#pragma once

/// Marks what the data-array library shows to others; everything else is hidden.
#define KESTRELDATA_EXPORT __attribute__((visibility("default")))

/// Marks what such a class keeps to itself.
#define KESTRELDATA_LOCAL __attribute__((visibility("hidden")))
