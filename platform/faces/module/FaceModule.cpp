#include "platform/faces/module/FaceModule.h"

#include "platform/faces/module/FaceFinder.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>

namespace {

using faces::FaceFinder;

void explain(const char* text, char* reason, size_t reasonSize)
{
    if (reason && reasonSize > 0)
        std::snprintf(reason, reasonSize, "%s", text);
}

/// Calls `work`; what it throws becomes text, as nothing may be thrown across a module's boundary.
template <typename Result, typename Work>
Result guarded(Result onFailure, char* reason, size_t reasonSize, Work work) noexcept
{
    try {
        return work();
    } catch (const std::exception& error) {
        explain(error.what(), reason, reasonSize);
    } catch (...) {
        explain("an unknown failure", reason, reasonSize);
    }
    return onFailure;
}

void* openFinder(const char* modelPath, char* reason, size_t reasonSize)
{
    return guarded<void*>(nullptr, reason, reasonSize,
                          [&] { return std::make_unique<FaceFinder>(modelPath).release(); });
}

int64_t findFaces(void* finder, const FaceModulePicture* picture, FaceModuleFace* faces, size_t capacity, char* reason,
                  size_t reasonSize)
{
    return guarded<int64_t>(-1, reason, reasonSize, [&] {
        const auto found = static_cast<FaceFinder*>(finder)->facesInPicture(*picture);
        const size_t count = std::min(found.size(), capacity);
        for (size_t i = 0; i < count; ++i)
            faces[i] = {found[i].x, found[i].y, found[i].width, found[i].height};
        return static_cast<int64_t>(count);
    });
}

void closeFinder(void* finder)
{
    guarded(0, nullptr, 0, [&] {
        delete static_cast<FaceFinder*>(finder);
        return 0;
    });
}

} // namespace

extern "C" [[gnu::visibility("default")]] const FaceModule faceModule;

const FaceModule faceModule = {kFaceModuleVersion, openFinder, findFaces, closeFinder};
