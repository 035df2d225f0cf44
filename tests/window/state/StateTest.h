#pragma once

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"
#include "tests/window/state/TestLoop.h"
#include "window/state/document/DocumentSession.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace stillora::window {

/// A document on a test's screen, with files of its own.
class StateTest : public testing::Test {
protected:
    static std::vector<std::uint8_t> plainJPEG(test::Color color = test::kRed, std::size_t width = 64)
    {
        return test::jpegBytes(test::plain(width, 48, color));
    }
    std::filesystem::path photo(const std::string& name, test::Color color = test::kRed) const
    {
        const auto bytes = plainJPEG(color);
        return folder_.makeFile(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    }

    std::unique_ptr<DocumentSession> newSession()
    {
        return std::make_unique<DocumentSession>(loop_, folder_.path("state"));
    }

    /// Adds files and waits until they are there.
    void add(DocumentSession& session, const std::vector<std::filesystem::path>& paths,
             std::size_t place = DocumentSession::kAtEnd)
    {
        bool isAdded = false;
        const auto connection = session.changed.connect([&] { isAdded = true; });
        session.add(paths, place);
        ASSERT_TRUE(loop_.runUntil([&] { return isAdded; }));
    }
    bool waitUntilSaved(DocumentSession& session)
    {
        return loop_.runUntil([&] { return session.isSaved() && !session.isBusy(); });
    }

    /// Names of the files, without their extensions, in order.
    static std::string titles(const DocumentSession& session)
    {
        std::string text;
        for (const PhotoID id : session.photos())
            text += (text.empty() ? "" : " ") + session.photo(id).title;
        return text;
    }
    static std::vector<PhotoID> ids(const DocumentSession& session, const std::vector<std::size_t>& places)
    {
        std::vector<PhotoID> found;
        for (const std::size_t place : places)
            found.push_back(session.photos()[place]);
        return found;
    }

    const TemporaryFolder folder_;
    TestLoop loop_;
};

} // namespace stillora::window
