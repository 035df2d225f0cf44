#pragma once

#include <cstddef>

namespace platform {

/// In bytes: what libraries keep their own structures in, and use without a look at whether they got it. Larger blocks
/// hold pictures, sounds and files, and who asks for them looks.
///
/// A program that is built with the object library small_blocks has an allocator that ends it as endPlainly() does
/// where a block of up to this size is not to be had; larger ones are answered as ever. The sanitizers have an
/// allocator of their own.
inline constexpr size_t kLargestSmallBlock = 64 << 10;

} // namespace platform
