#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// What a process may still do with files once all else was taken from it. A folder stands for all that it holds, now
/// and later; a path where there is nothing at that time is passed over.
struct SandboxFiles {
    std::vector<std::string> readable;
    /// To be read too; files and folders may be made and removed below them.
    std::vector<std::string> writable;
};

/// Whether a process may connect to sockets of this machine. Sockets that it has already it may use in any case.
enum class SandboxSockets { None, ThisMachine };

/// What a process keeps when it gives up everything else.
struct SandboxRights {
    /// Nothing leaves the files as they are for the user: the caller does not know which it will need. Those that any
    /// program reads need not be named: programs and libraries, fonts, the system's settings, what is known of the
    /// processors, /dev/null and its like, and this installation.
    std::optional<SandboxFiles> files = {};
    SandboxSockets sockets = SandboxSockets::None;
    /// The most address space that the process may have, in bytes. Sanitizers need much more, so that it does not count
    /// in a build with one.
    std::optional<uint64_t> addressSpaceBytes = {};
};

/// What the kernel can take away. Tests name less than there is.
struct SandboxKernel {
    /// The version of the kernel's Landlock; below 2 it is not used, as it would refuse to move a file to another
    /// folder.
    int landlockVersion = 0;
    bool filtersCalls = false;

    static SandboxKernel running();
};

/// Takes from this process what it does not keep: other files, new programs and processes, other processes' memory, the
/// network, new privileges, core dumps, and the kernel's interfaces that decoding has no use for. What is refused fails
/// with an error of the call and does not end the process. Open descriptors and threads stay as they are; threads may
/// be made. Not to be undone, and handed on to what the process makes. To be called once, at the start of main, while
/// there is one thread; a thread that there is already would keep all.
/// @return what could not be taken away, a sentence each, for the log and in English: what the kernel cannot do at all
/// is known to the translations. Empty where the kernel can do it all
[[nodiscard]] std::vector<std::string> confineProcess(const SandboxRights& rights,
                                                      const SandboxKernel& kernel = SandboxKernel::running());

} // namespace platform
