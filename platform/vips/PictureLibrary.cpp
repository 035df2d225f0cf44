#include "platform/vips/PictureLibrary.h"

#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/LoadableModule.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSLog.h"
#include "platform/vips/module/PictureModule.h"

#include <cstdlib>
#include <string>

namespace platform {
namespace {

const PictureModule* load()
{
    constexpr ModuleKind kKind = {translatable("library of pictures"), kPictureModuleSymbol, kPictureModuleVersion};
    std::string reason;
    const std::string path = installedPlace(InstalledFolder::Modules, "picture-formats.so");
    const auto* const module = static_cast<const PictureModule*>(loadModule(kKind, path, reason));
    if (module && module->start())
        return module;
    logFailure("CGImageSourceCreateWithURL", module ? "the library of pictures does not start" : reason);
    return nullptr;
}

} // namespace

void settlePictureLibrary()
{
    // It would write code for loops that are not used here, which a process that never runs what it wrote cannot.
    setenv("VIPS_NOVECTOR", "1", 1);
    // Where it looks for translations, colour profiles and modules, of which none are asked for: its modules for
    // documents, slides and more bring sixty libraries and more work than a photo.
    setenv("VIPSHOME", "/nonexistent", 1);
}

const PictureModule* pictureLibrary()
{
    static const PictureModule* const library = load();
    return library;
}

} // namespace platform
