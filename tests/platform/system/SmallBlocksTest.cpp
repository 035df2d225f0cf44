#include "platform/system/SmallBlocks.h"
#include "platform/system/FatalErrors.h"

#include <cstdint>
#include <cstdlib>
#include <functional>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

/// From here on all memory that this process does not have yet is refused.
void refuseMemory()
{
    const rlimit none{.rlim_cur = 0, .rlim_max = 0};
    if (setrlimit(RLIMIT_AS, &none) != 0)
        _exit(99);
}

/// @param allocate  takes one block more, and keeps it
/// @return after the first that is refused, or after more than the process can have left
bool isRefused(const std::function<void*()>& allocate)
{
    platform::endPlainlyOnFatalErrors("program");
    refuseMemory();
    for (int i = 0; i < 1'000'000; ++i)
        if (void* volatile block = allocate(); block == nullptr)
            return true;
    return false;
}

} // namespace

TEST(SmallBlocks, AWantOfOneEndsTheProgramAndAWantOfALargeOneIsAnswered)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr size_t kMost = platform::kLargestSmallBlock;
    // Volatile, as the compiler sees that such a block cannot be.
    static volatile size_t halfOfAll = SIZE_MAX / 2 + 1;
    const auto answer = [](const std::function<void*()>& allocate) { _exit(isRefused(allocate) ? 7 : 8); };
    const auto ended = testing::ExitedWithCode(1);
    const auto answered = testing::ExitedWithCode(7);
    const char* const line = "^program: there is not enough memory\n$";
    EXPECT_EXIT(answer([] { return std::malloc(100); }), ended, line);
    EXPECT_EXIT(answer([] { return std::malloc(kMost); }), ended, line);
    EXPECT_EXIT(answer([] { return std::malloc(kMost + 1); }), answered, "^$");
    EXPECT_EXIT(answer([] { return std::calloc(2, kMost / 2); }), ended, line);
    EXPECT_EXIT(answer([] { return std::calloc(2, kMost / 2 + 1); }), answered, "^$");
    EXPECT_EXIT(answer([] { return std::calloc(halfOfAll, 2); }), answered, "^$");
    EXPECT_EXIT(answer([] { return std::realloc(nullptr, kMost); }), ended, line);
    EXPECT_EXIT(answer([] { return std::realloc(nullptr, kMost + 1); }), answered, "^$");
    EXPECT_EXIT(answer([] { return std::realloc(std::malloc(100), 0); }), answered, "^$");
}
