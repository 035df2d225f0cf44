#pragma once

#include "platform/files/NSURL.h"

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// What an application does with a file, by the platform's numbers.
enum class LSRolesMask : uint32_t { Viewer = 2, Editor = 4, All = 0xFFFFFFFF };

/// The applications of this machine, and which files each can open. An application's URL is that of its desktop entry:
/// programs that share a runner or an interpreter stay apart by it, and it is all that is needed to start one.
class LaunchServices {
public:
    struct Application {
        /// In the user's language; never empty.
        std::string name;
        /// By which the desktop knows it, "org.example.Paint.desktop".
        std::string identifier;
    };

    /// The desktop's own database of applications, shared by all programs.
    static const LaunchServices& desktop();

    virtual ~LaunchServices() = default;

    /// The applications that can open a file: those that declare its type, or one that it is a kind of, and take files
    /// at all. A desktop entry tells no role, so that an application with a fitting type counts for each.
    ///
    /// @return in no order that means anything; nothing if there is none, or no such file
    virtual std::optional<std::vector<NSURL>> copyApplicationURLsForURL(const NSURL& file, LSRolesMask roles) const = 0;

    /// @name Resource values of an application's URL; false where they cannot be found out. Any thread, several at
    /// once.
    /// @{
    virtual bool isReadable(const NSURL& application) const = 0;
    /// Whether its program is there and may be run.
    virtual bool isExecutable(const NSURL& application) const = 0;
    /// @}

    /// @return nothing where no application is
    virtual std::optional<Application> applicationAtURL(const NSURL& application) const = 0;
};

} // namespace platform
