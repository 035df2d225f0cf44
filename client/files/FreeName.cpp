#include "client/files/FreeName.h"

#include "platform/files/NSFileManager.h"

#include <fmt/format.h>

namespace stillora {

std::string numberedName(const std::string& name, int number)
{
    return number == 1 ? name : fmt::format("{}-{}", name, number);
}

std::optional<platform::NSURL> moveToFreeName(const platform::NSURL& file, const platform::NSURL& folder,
                                              const std::string& name, const std::string& extension,
                                              platform::NSError* error)
{
    for (int number = 1;; ++number) {
        const auto place =
            folder.URLByAppendingPathComponent(fmt::format("{}.{}", numberedName(name, number), extension), false);
        platform::NSError failure;
        if (platform::NSFileManager::defaultManager().moveItemAtURL(file, place, &failure))
            return place;
        if (failure.code == platform::kNSFileWriteFileExistsError)
            continue;
        if (error)
            *error = std::move(failure);
        return std::nullopt;
    }
}

} // namespace stillora
