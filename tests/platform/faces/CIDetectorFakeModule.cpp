#include "platform/faces/module/FaceModule.h"

#include <atomic>
#include <cstdio>
#include <cstring>

/// A module for tests of the one who loads it: a finder is a number; "fails" in the model's name makes finding fail,
/// "unreadable" opening. The first face is as wide as the number of finders opened so far, and as high as those closed.

namespace {

std::atomic<int> opened{0};
std::atomic<int> closed{0};

struct Finder {
    bool fails;
};

void* openFinder(const char* modelPath, char* reason, size_t reasonSize)
{
    if (std::strstr(modelPath, "unreadable")) {
        std::snprintf(reason, reasonSize, "it is for tests");
        return nullptr;
    }
    ++opened;
    return new Finder{std::strstr(modelPath, "fails") != nullptr};
}

int64_t findFaces(void* finder, const FaceModulePicture* picture, FaceModuleFace* faces, size_t capacity, char* reason,
                  size_t reasonSize)
{
    if (static_cast<Finder*>(finder)->fails) {
        std::snprintf(reason, reasonSize, "a failure for tests");
        return -1;
    }
    if (capacity < 2 || picture->width != 100)
        return 0;
    faces[0] = {10, 20, static_cast<double>(opened), static_cast<double>(closed) + 1};
    faces[1] = {0, 70, 40, 30};
    return 2;
}

void closeFinder(void* finder)
{
    ++closed;
    delete static_cast<Finder*>(finder);
}

} // namespace

#ifndef STILLORA_FAKE_VERSION
#define STILLORA_FAKE_VERSION kFaceModuleVersion
#endif
#ifndef STILLORA_FAKE_SYMBOL
#define STILLORA_FAKE_SYMBOL faceModule
#endif

extern "C" [[gnu::visibility("default")]] const FaceModule STILLORA_FAKE_SYMBOL;

const FaceModule STILLORA_FAKE_SYMBOL = {STILLORA_FAKE_VERSION, openFinder, findFaces, closeFinder};
