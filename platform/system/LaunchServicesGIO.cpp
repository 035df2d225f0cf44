#include "platform/system/LaunchServices.h"

#include "platform/foundation/Handle.h"
#include "platform/system/NSWorkspace.h"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include <unistd.h>

#include <memory>

namespace platform {

namespace {

template <typename Object>
using ObjectPtr = Handle<Object, g_object_unref>;

using TextPtr = Handle<char, g_free>;

/// As the desktop sees it, by name and content; the types that this program knows itself, where the desktop has none.
std::string contentTypeOf(const NSURL& url)
{
    const ObjectPtr<GFile> file(g_file_new_for_path(url.path().c_str()));
    const ObjectPtr<GFileInfo> info(g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_CONTENT_TYPE,
                                                      G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
    if (!info)
        return {};
    const char* type = g_file_info_get_content_type(info.get());
    if (type && !g_content_type_is_unknown(type))
        return type;
    if (const auto known = NSWorkspace::sharedWorkspace().typeOfFile(url))
        return *known;
    return type ? type : std::string();
}

ObjectPtr<GDesktopAppInfo> entryAt(const NSURL& url)
{
    return ObjectPtr<GDesktopAppInfo>(g_desktop_app_info_new_from_filename(url.path().c_str()));
}

/// Started by a message on the bus; such an entry may name no program.
bool isStartedByMessage(GDesktopAppInfo* entry)
{
    return g_desktop_app_info_get_boolean(entry, "DBusActivatable") != FALSE;
}

bool takesFiles(GDesktopAppInfo* entry)
{
    auto* const application = G_APP_INFO(entry);
    return g_app_info_supports_files(application) || g_app_info_supports_uris(application) || isStartedByMessage(entry);
}

class DesktopLaunchServices final : public LaunchServices {
public:
    std::optional<std::vector<NSURL>> copyApplicationURLsForURL(const NSURL& file, LSRolesMask /*roles*/) const override
    {
        const std::string type = contentTypeOf(file);
        if (type.empty())
            return std::nullopt;
        std::vector<NSURL> urls;
        GList* const applications = g_app_info_get_all_for_type(type.c_str());
        for (GList* each = applications; each; each = each->next) {
            if (!G_IS_DESKTOP_APP_INFO(each->data))
                continue;
            auto* const entry = static_cast<GDesktopAppInfo*>(each->data);
            const char* path = g_desktop_app_info_get_filename(entry);
            if (path && takesFiles(entry))
                urls.push_back(NSURL::fileURLWithPath(path, false));
        }
        g_list_free_full(applications, g_object_unref);
        if (urls.empty())
            return std::nullopt;
        return urls;
    }

    bool isReadable(const NSURL& application) const override { return access(application.path().c_str(), R_OK) == 0; }

    bool isExecutable(const NSURL& application) const override
    {
        const auto entry = entryAt(application);
        if (!entry)
            return false;
        const char* program = g_app_info_get_executable(G_APP_INFO(entry.get()));
        return program ? TextPtr(g_find_program_in_path(program)) != nullptr : isStartedByMessage(entry.get());
    }

    std::optional<Application> applicationAtURL(const NSURL& application) const override
    {
        const auto entry = entryAt(application);
        if (!entry)
            return std::nullopt;
        const char* identifier = g_app_info_get_id(G_APP_INFO(entry.get()));
        return Application{g_app_info_get_display_name(G_APP_INFO(entry.get())),
                           identifier ? identifier : application.lastPathComponent()};
    }
};

} // namespace

const LaunchServices& LaunchServices::desktop()
{
    static const DesktopLaunchServices services;
    return services;
}

} // namespace platform
