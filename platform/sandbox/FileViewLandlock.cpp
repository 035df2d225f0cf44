#include "platform/sandbox/FileView.h"

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/InstalledFiles.h"
#include "platform/sandbox/Sanitizers.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/landlock.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform::FileView {

namespace {

// What kernels know that are newer than this system's headers.
constexpr uint64_t kTruncate = 1ULL << 14;
constexpr uint64_t kControlDevice = 1ULL << 15;
constexpr uint64_t kBindTCP = 1ULL << 0;
constexpr uint64_t kConnectTCP = 1ULL << 1;
constexpr uint64_t kAbstractSockets = 1ULL << 0;
constexpr uint64_t kSignals = 1ULL << 1;

/// As the newest kernel takes it; an older one takes it too, where what it does not know is zero.
struct RulesetAttributes {
    uint64_t files = 0;
    uint64_t network = 0;
    uint64_t scoped = 0;
};

constexpr uint64_t kRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr uint64_t kWrite = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                            LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                            LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_REFER | kTruncate;
/// Programs cannot be run and devices, pipes and sockets not be made anywhere.
constexpr uint64_t kEverything = kRead | kWrite | kControlDevice | LANDLOCK_ACCESS_FS_EXECUTE |
                                 LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                                 LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK;
/// Those that a rule for a file may name.
constexpr uint64_t kOfFiles =
    LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_EXECUTE | kTruncate;

RulesetAttributes attributesOf(bool restrictsFiles, SandboxSockets sockets, int version)
{
    RulesetAttributes attributes;
    if (restrictsFiles) {
        attributes.files = kEverything;
        if (version < 3)
            attributes.files &= ~kTruncate;
        if (version < 5)
            attributes.files &= ~kControlDevice;
    }
    if (version >= 4)
        attributes.network = kBindTCP | kConnectTCP;
    if (version >= 6)
        attributes.scoped = kSignals | (sockets == SandboxSockets::None ? kAbstractSockets : 0);
    return attributes;
}

/// @return false on failure, but for a path where nothing is, or nothing that this process could reach anyway
bool allow(int ruleset, const std::string& path, uint64_t rights)
{
    const FileDescriptor place(open(path.c_str(), O_PATH | O_CLOEXEC));
    struct stat status {};
    if (!place || fstat(place.get(), &status) != 0)
        return errno == ENOENT || errno == ENOTDIR || errno == EACCES || errno == ELOOP || errno == ENAMETOOLONG;
    if (!S_ISDIR(status.st_mode))
        rights &= kOfFiles;
    landlock_path_beneath_attr rule{};
    rule.allowed_access = rights;
    rule.parent_fd = place.get();
    // Sockets and pipes without a place in a file system are refused as bad, and are under no rule anyway.
    return syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0 || errno == EBADFD;
}

std::string homeFolder(const char* variable, const char* usual)
{
    if (const char* folder = std::getenv(variable); folder && *folder)
        return folder;
    const char* const home = std::getenv("HOME");
    return home && *home ? std::string(home).append("/").append(usual) : std::string();
}

std::vector<std::string> readByAnyProgram()
{
    std::vector<std::string> places{
        "/usr", "/lib", "/lib32", "/lib64", "/libx32", "/etc", "/opt", "/nix/store", "/gnu/store", "/run/host/fonts",
        "/var/cache/fontconfig", "/var/lib/locales",
        // Of the processes this one alone.
        "/proc/self", "/proc/cpuinfo", "/proc/meminfo", "/proc/stat", "/proc/loadavg", "/proc/uptime", "/proc/version",
        "/proc/filesystems", "/proc/sys/vm", "/proc/sys/kernel", "/proc/sys/fs", "/sys/devices/system/cpu",
        "/sys/devices/system/node", "/sys/fs/cgroup", "/sys/kernel/mm/transparent_hugepage", "/dev/urandom",
        "/dev/random", homeFolder("XDG_DATA_HOME", ".local/share") + "/fonts",
        homeFolder("XDG_CONFIG_HOME", ".config") + "/fontconfig",
        homeFolder("XDG_CACHE_HOME", ".cache") + "/fontconfig"};
    if (const char* const home = std::getenv("HOME"); home && *home)
        places.push_back(std::string(home).append("/.fonts"));
    for (const InstalledFolder folder : {InstalledFolder::Services, InstalledFolder::Modules, InstalledFolder::Models})
        for (std::string& place : installedPlaces(folder, "."))
            places.push_back(std::move(place));
    for (std::string& place : installedPlaces(InstalledFolder::Shared, "locale"))
        places.push_back(std::move(place));
    return places;
}

bool allowAll(int ruleset, const std::vector<std::string>& paths, uint64_t rights)
{
    for (const std::string& path : paths)
        if (!allow(ruleset, path, rights))
            return false;
    return true;
}

/// The folder that a sanitizer is to write what it finds to, as in "log_path='/a/report':..."; a name there is a
/// file's.
std::vector<std::string> foldersOfFindings()
{
    std::vector<std::string> folders;
    for (const char* variable : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        constexpr std::string_view kName = "log_path=";
        const char* const value = kBuiltWithSanitizer ? std::getenv(variable) : nullptr;
        const std::string_view options = value ? value : "";
        const size_t place = options.rfind(kName);
        if (place == std::string_view::npos)
            continue;
        std::string_view path = options.substr(place + kName.size());
        const bool isQuoted = path.starts_with('\'');
        path.remove_prefix(isQuoted ? 1 : 0);
        path = path.substr(0, path.find(isQuoted ? '\'' : ':'));
        if (const size_t slash = path.rfind('/'); slash != std::string_view::npos)
            folders.emplace_back(path.substr(0, slash));
    }
    return folders;
}

bool allowFiles(int ruleset, const SandboxFiles& files, uint64_t handled)
{
    return allowAll(ruleset, readByAnyProgram(), kRead & handled) &&
           allowAll(ruleset, {"/dev/null", "/dev/zero", "/dev/full"},
                    (kRead | LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate) & handled) &&
           allowAll(ruleset, foldersOfFindings(), (kRead | kWrite) & handled) &&
           allowAll(ruleset, files.readable, kRead & handled) &&
           allowAll(ruleset, files.writable, (kRead | kWrite) & handled);
}

} // namespace

int landlockVersion()
{
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    return version < 0 ? 0 : static_cast<int>(version);
}

bool restrictTo(const std::optional<SandboxFiles>& files, SandboxSockets sockets, int version)
{
    const RulesetAttributes attributes = attributesOf(files.has_value(), sockets, version);
    if (attributes.files == 0 && attributes.network == 0 && attributes.scoped == 0)
        return true;
    const FileDescriptor ruleset(
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0)));
    if (!ruleset)
        return false;
    if (files && !allowFiles(ruleset.get(), *files, attributes.files))
        return false;
    return syscall(SYS_landlock_restrict_self, ruleset.get(), 0) == 0;
}

} // namespace platform::FileView
