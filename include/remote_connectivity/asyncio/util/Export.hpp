#pragma once

/// Marks what the library shows to its users; everything else is hidden.
#define REMOTE_CONNECTIVITY_EXPORT __attribute__((visibility("default")))

/// Marks what such a class keeps to itself.
#define REMOTE_CONNECTIVITY_LOCAL __attribute__((visibility("hidden")))
