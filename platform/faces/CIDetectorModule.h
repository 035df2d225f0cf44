#pragma once

#include "platform/faces/CIDetector.h"
#include "platform/foundation/Lock.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct FaceModule;

namespace platform {

/// Makes face detectors from a loadable module and its model, which bring many libraries along: they are loaded when
/// the first detector is made, and stay for the life of the process. Any thread.
///
/// What cannot be loaded, or fails later, is logged once and means no faces. The networks of detectors that are gone
/// are kept for the next ones, so there are as many as detectors have been in use at once.
class CIDetectorModule final : public std::enable_shared_from_this<CIDetectorModule> {
public:
    /// Where to look: of each list the first file that exists is taken.
    struct Paths {
        std::vector<std::string> modules;
        std::vector<std::string> models;
    };

    static std::shared_ptr<CIDetectorModule> moduleWithPaths(Paths paths);

    /// The one of this process, from `standardPaths`.
    static CIDetectorModule& mainModule();

    /// What the environment names, by two variables that the build chooses; else beside the program, then
    /// where an installation that was moved has it, then where it was to be installed.
    static Paths standardPaths();

    /// The first of the files that are needed and not there; nothing where all are. Loads none of them.
    static std::optional<std::string> missingFile(const Paths& paths);

    /// @return null if the module or its model cannot be used
    std::unique_ptr<CIDetector> makeDetector();

private:
    friend class ModuleDetector;

    /// The module's own object, closed by the module.
    using Finder = std::unique_ptr<void, std::function<void(void*)>>;

    explicit CIDetectorModule(Paths paths) : paths_(std::move(paths)) {}

    Finder openFinder();
    bool load(std::string* reason) REQUIRES(lock_);
    void giveBack(Finder finder);
    void logOnce(const std::string& reason);

    const Paths paths_;

    // Any thread.
    std::atomic<bool> logged_{false};
    Lock lock_;
    bool tried_ GUARDED_BY(lock_) = false;
    const FaceModule* module_ GUARDED_BY(lock_) = nullptr;
    std::string model_ GUARDED_BY(lock_);
    std::vector<Finder> idle_ GUARDED_BY(lock_);
};

} // namespace platform
