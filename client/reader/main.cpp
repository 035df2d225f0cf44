#include "client/reader/Answers.h"
#include "client/reader/ReaderService.h"
#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLocale.h"
#include "platform/sandbox/Sandbox.h"
#include "platform/vips/PictureLibrary.h"

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <malloc.h>
#include <unistd.h>

namespace {

/// Of pictures that are decoded at once, and of all that stands behind them; what is only reserved counts too.
constexpr uint64_t kUsualMemory = uint64_t{4} << 30;

/// Decodes what it is handed, and can do nothing else: the files come opened, and none is written.
void giveUpRights()
{
    const auto memory = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    platform::SandboxFiles files;
    // The face detector, where another one is named.
    for (const char* variable : {"STILLORA_FACES_MODULE", "STILLORA_FACES_MODEL"})
        if (const char* const path = std::getenv(variable))
            files.readable.emplace_back(path);
    stillora::setLacksOfConfinement(
        platform::confineProcess({.files = std::move(files), .addressSpaceBytes = kUsualMemory + memory / 2}));
}

/// As the service: blocks of pictures go back to the system when they are freed.
void limitMemory()
{
    mallopt(M_MMAP_THRESHOLD, 4 << 20);
    mallopt(M_TRIM_THRESHOLD, 16 << 20);
    mallopt(M_ARENA_MAX, 4);
}

void setUpLanguage(const char* language)
{
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    platform::setPreferredLanguage(language);
    platform::NSBundle::mainBundle().setLocalizations(
        platform::installedPlace(platform::InstalledFolder::Shared, "locale"), "stillora");
}

} // namespace

int main(int argc, char** argv)
{
    giveUpRights();
    limitMemory();
    platform::settlePictureLibrary();
    for (int i = 1; i + 1 < argc; i += 2)
        if (std::string_view(argv[i]) == "--language")
            setUpLanguage(argv[i + 1]);
    if (stillora::ReaderService::run(STILLORA_VERSION))
        std::_Exit(EXIT_SUCCESS);
    std::fputs("stillora-file-reader: it is started by the programs that need it\n", stderr);
    return EXIT_FAILURE;
}
