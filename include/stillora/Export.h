#pragma once

/// Marks what programs of others find in the shared library. Everything else is hidden in it.
#define STILLORA_EXPORT __attribute__((visibility("default")))

/// Marks parts of such classes that are nobody else's.
#define STILLORA_HIDDEN __attribute__((visibility("hidden")))
