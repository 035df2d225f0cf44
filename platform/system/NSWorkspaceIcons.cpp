#include "platform/system/DocumentIcon.h"
#include "platform/system/NSWorkspace.h"

namespace platform {

namespace {

DocumentKind kindOfType(std::string_view type)
{
    if (type.starts_with("video/"))
        return DocumentKind::Movie;
    if (type.starts_with("audio/"))
        return DocumentKind::Sound;
    if (NSWorkspace::conformsToImage(type))
        return DocumentKind::Picture;
    return DocumentKind::Plain;
}

} // namespace

NSImagePtr NSWorkspace::iconForFileType(std::string_view type) const
{
    return documentIcon(kindOfType(typeOfExtension(type)));
}

NSImagePtr NSWorkspace::iconForFile(std::string_view path) const
{
    return iconForFileType(pathExtension(path));
}

} // namespace platform
