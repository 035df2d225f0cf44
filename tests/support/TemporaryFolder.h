#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSData.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

/// A fresh folder for one test; removed with all it holds.
class TemporaryFolder final {
public:
    TemporaryFolder()
    {
        std::string path = (std::filesystem::temp_directory_path() / "stillora-test-XXXXXX").native();
        path_ = mkdtemp(path.data());
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }
    platform::NSURL url() const { return platform::NSURL::fileURLWithPath(path_, true); }
    platform::NSURL url(std::string_view name) const { return platform::NSURL::fileURLWithPath(path(name)); }

    platform::NSData bookmark() const { return url().bookmarkData().value(); }

    std::string makeFolder(std::string_view name) const
    {
        std::filesystem::create_directories(path(name));
        return path(name);
    }

    /// Makes or replaces a file, and the folders it needs.
    std::string makeFile(std::string_view name, std::string_view contents = "contents") const
    {
        const std::filesystem::path file(path(name));
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << contents;
        return file.native();
    }

    /// Names of all that is in the folder and below, sorted; hidden files too.
    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path_))
            names.push_back(entry.path().native().substr(path_.size() + 1));
        std::sort(names.begin(), names.end());
        return names;
    }

    static std::string contentsOf(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string path_;
};
