#pragma once

#include "platform/foundation/NSData.h"

#include <string>

/// Whether objects that nothing refers to are a fault.
enum class Unreferred { Told, Allowed };

/// A keyed archive as text, read by Python's property list reader and resolved by hand: "Class<Superclass {key: value}"
/// with the keys in alphabetical order. Anything that the platform would not accept is told instead.
std::string readByReference(const platform::NSData& archive, Unreferred unreferred = Unreferred::Told);
