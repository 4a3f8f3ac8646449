#pragma once

/// Marks what a platform library shows to others; everything else is hidden.
#define KESTREL_EXPORT __attribute__((visibility("default")))

/// Marks what such a class keeps to itself.
#define KESTREL_LOCAL __attribute__((visibility("hidden")))
