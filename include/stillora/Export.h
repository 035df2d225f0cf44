#pragma once

/// Marks what programs of others find in the shared library. Everything else is hidden in it.
#define STILLORA_EXPORT __attribute__((visibility("default")))
