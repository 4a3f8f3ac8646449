#pragma once

/// Marks what a platform library shows to others; everything else is hidden.
#define KESTREL_EXPORT __attribute__((visibility("default")))
