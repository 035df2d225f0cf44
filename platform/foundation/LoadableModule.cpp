#include "platform/foundation/LoadableModule.h"

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/LocalizedText.h"

#include <algorithm>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

/// Whether a library file is whole: the list of its sections, which stands at its end, lies inside. The loader maps a
/// file that was cut off, and the process then dies when it touches what is not there.
bool isWholeLibrary(const std::string& path)
{
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat information {};
    if (!file || fstat(file.get(), &information) != 0 || !S_ISREG(information.st_mode))
        return false;
    Elf64_Ehdr header{};
    if (pread(file.get(), &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header))
        return false;
    if (!std::equal(header.e_ident, header.e_ident + SELFMAG, ELFMAG) || header.e_ident[EI_CLASS] != ELFCLASS64)
        return false;
    const auto size = static_cast<uint64_t>(information.st_size);
    return header.e_shoff <= size && uint64_t{header.e_shnum} * header.e_shentsize <= size - header.e_shoff;
}

} // namespace

const void* loadModule(const ModuleKind& kind, const std::string& path, std::string& reason)
{
    const std::string name = localized(kind.name);
    if (access(path.c_str(), F_OK) != 0) {
        reason = localized("there is no {} at {}", {name, path});
        return nullptr;
    }
    if (!isWholeLibrary(path)) {
        reason = localized("the {} {} is damaged", {name, path});
        return nullptr;
    }
    // Its libraries never come out of a process again, so neither does the module.
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!library) {
        const char* text = dlerror();
        reason = localized("the {} could not be loaded: {}", {name, text ? text : path.c_str()});
        return nullptr;
    }
    const void* const symbol = dlsym(library, kind.symbol);
    if (symbol && *static_cast<const uint32_t*>(symbol) == kind.version)
        return symbol;
    reason = localized("the {} {} is none of this version", {name, path});
    return nullptr;
}

} // namespace platform
