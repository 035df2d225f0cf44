#include "platform/system/FatalErrors.h"

#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <glib.h>
#include <gtest/gtest.h>

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
