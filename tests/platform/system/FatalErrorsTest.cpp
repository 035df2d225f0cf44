#include "platform/system/FatalErrors.h"
#include "platform/sandbox/Sanitizers.h"

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

class FatalErrorsTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

template <typename Exception>
void endBy(const Exception& exception)
{
    platform::endPlainlyOnFatalErrors("program");
    std::thread([&] { throw exception; }).join();
}

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

TEST_F(FatalErrorsTest, AnExceptionThatNobodyCatchesIsToldInALine)
{
    EXPECT_EXIT(endBy(std::runtime_error("the reason")), testing::ExitedWithCode(1), "^program: the reason\n$");
    EXPECT_EXIT(endBy(3), testing::ExitedWithCode(1), "^program: an unknown exception was not caught\n$");
}

TEST_F(FatalErrorsTest, AWantOfMemoryIsToldAsSuch)
{
    EXPECT_EXIT(endBy(std::bad_alloc()), testing::ExitedWithCode(1), "^program: there is not enough memory\n$");
}

TEST_F(FatalErrorsTest, AWantOfASmallBlockEndsTheProgramAndOneOfALargeOneIsAnswered)
{
    if (platform::kBuiltWithSanitizer)
        GTEST_SKIP() << "the sanitizers have an allocator of their own";
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

TEST_F(FatalErrorsTest, AWantOfThreadsIsToldAsSuch)
{
    const auto code = std::make_error_code(std::errc::resource_unavailable_try_again);
    EXPECT_EXIT(endBy(std::system_error(code)), testing::ExitedWithCode(1), "^program: no thread can be made\n$");
}

TEST_F(FatalErrorsTest, WhatALibraryHoldsToBeFatalIsToldInALine)
{
    const auto end = [] {
        platform::endPlainlyOnFatalErrors("program");
        g_log("library", G_LOG_LEVEL_ERROR, "no %s", "thread");
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(1), "^program: no thread\n$");
}

TEST_F(FatalErrorsTest, WarningsOfLibrariesEndNothing)
{
    const auto warn = [] {
        platform::endPlainlyOnFatalErrors("program");
        g_log("library", G_LOG_LEVEL_WARNING, "odd");
        _exit(7);
    };
    EXPECT_EXIT(warn(), testing::ExitedWithCode(7), "odd");
}
