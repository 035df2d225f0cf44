#include "window/toolkit/RememberedState.h"

#include <string>

#include <glibmm/error.h>
#include <glibmm/fileutils.h>
#include <glibmm/keyfile.h>

namespace stillora::window {

namespace {

constexpr const char* kGroup = "Window";

std::optional<std::filesystem::path> folderOf(const Glib::RefPtr<Glib::KeyFile>& keys, const char* key)
{
    if (!keys->has_key(kGroup, key))
        return std::nullopt;
    return std::filesystem::path(keys->get_string(kGroup, key).raw());
}

void setFolder(const Glib::RefPtr<Glib::KeyFile>& keys, const char* key,
               const std::optional<std::filesystem::path>& folder)
{
    // The file is UTF-8, as are all folders but very old ones.
    if (folder && g_utf8_validate(folder->c_str(), -1, nullptr))
        keys->set_string(kGroup, key, folder->string());
}

} // namespace

RememberedState::RememberedState(const std::filesystem::path& folder) : file_(folder / "window.ini")
{
    try {
        auto keys = Glib::KeyFile::create();
        keys->load_from_file(file_.string());
        values.width = keys->get_integer(kGroup, "width");
        values.height = keys->get_integer(kGroup, "height");
        values.isMaximized = keys->get_boolean(kGroup, "maximized");
        values.movieFolder = folderOf(keys, "movies");
        values.photoFolder = folderOf(keys, "photos");
        values.musicFolder = folderOf(keys, "music");
    } catch (const Glib::Error&) {
    }
}

void RememberedState::save() const
{
    std::error_code ignored;
    std::filesystem::create_directories(file_.parent_path(), ignored);
    try {
        auto keys = Glib::KeyFile::create();
        keys->set_integer(kGroup, "width", values.width);
        keys->set_integer(kGroup, "height", values.height);
        keys->set_boolean(kGroup, "maximized", values.isMaximized);
        setFolder(keys, "movies", values.movieFolder);
        setFolder(keys, "photos", values.photoFolder);
        setFolder(keys, "music", values.musicFolder);
        keys->save_to_file(file_.string());
    } catch (const Glib::Error&) {
    }
}

} // namespace stillora::window
