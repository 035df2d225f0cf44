#include "platform/system/SmallBlocks.h"

#include "platform/system/FatalErrors.h"

#include <cstddef>
#include <cstdint>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the names are the C library's.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace {

/// Libraries that read the system's fonts, and others, use a small block without a look: the program would end by a
/// signal, and say nothing.
void* demanded(void* block, size_t size)
{
    if (block == nullptr && size <= platform::kLargestSmallBlock)
        platform::endPlainly("there is not enough memory");
    return block;
}

} // namespace

extern "C" void* malloc(size_t size)
{
    return demanded(__libc_malloc(size), size);
}

extern "C" void* calloc(size_t count, size_t size)
{
    size_t whole = 0;
    return demanded(__libc_calloc(count, size), __builtin_mul_overflow(count, size, &whole) ? SIZE_MAX : whole);
}

extern "C" void* realloc(void* block, size_t size)
{
    // Of no bytes is to free the block, and the answer is none.
    return demanded(__libc_realloc(block, size), size == 0 ? SIZE_MAX : size);
}
