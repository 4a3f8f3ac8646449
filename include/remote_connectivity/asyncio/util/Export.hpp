#pragma once

/// Marks what the library shows to its users; everything else is hidden.
#define REMOTE_CONNECTIVITY_EXPORT __attribute__((visibility("default")))
