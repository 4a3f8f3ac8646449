#pragma once

/// Marks what the data-array library shows to others; everything else is hidden.
#define KESTRELDATA_EXPORT __attribute__((visibility("default")))
