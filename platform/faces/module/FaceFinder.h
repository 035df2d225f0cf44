#pragma once

#include "platform/faces/module/FaceBoxes.h"
#include "platform/faces/module/FaceModule.h"
#include "platform/faces/module/FaceNetwork.h"

#include <string>
#include <vector>

namespace faces {

/// Finds the faces of a picture: the network passes over the whole picture in two sizes, and every place where it may
/// have seen a face is looked at again from near. One thread at a time. Throws the exceptions of the library behind it.
class FaceFinder final {
public:
    explicit FaceFinder(const std::string& modelPath);

    /// The bounds of each face, inside the picture; the surest first.
    std::vector<FaceBox> facesInPicture(const FaceModulePicture& picture);

private:
    bool isFace(const PicturePyramid& picture, FaceBox& box);

    // One for each size of input: a network that changes its size gets new memory each time.
    FaceNetwork large_;
    FaceNetwork small_;
    FaceNetwork near_;
    FaceNetwork nearer_;
};

} // namespace faces
