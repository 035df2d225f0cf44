#pragma once

#include "platform/faces/module/FaceBoxes.h"
#include "platform/faces/module/FaceModule.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace faces {

/// A picture and its halves, quarters and so on, as far as looks from afar need them: shrinking from a size near the
/// one wanted is quick and keeps what is small.
class PicturePyramid final {
public:
    /// @param picture  must outlive the pyramid
    explicit PicturePyramid(const FaceModulePicture& picture);
    ~PicturePyramid();

    size_t width() const;
    size_t height() const;

    struct Levels;
    const Levels& levels() const { return *levels_; }

private:
    std::unique_ptr<Levels> levels_;
};

/// The neural network, made for pictures of one size and used with any: it only looks at the surroundings of each
/// place. One thread at a time. Throws the exceptions of the library behind it.
class FaceNetwork final {
public:
    /// Reads a model file.
    explicit FaceNetwork(const std::string& modelPath);
    ~FaceNetwork();

    /// Looks at a part of the picture, shrunk or enlarged so that its longer side is `side` pixels of the network. What
    /// of it lies outside the picture is black.
    ///
    /// @param leastScore  boxes below it are left out
    /// @return boxes in pixels of the picture, in no order; several for each face
    std::vector<FaceBox> look(const PicturePyramid& picture, const FaceBox& part, size_t side, double leastScore);

private:
    struct Network;
    std::unique_ptr<Network> network_;
};

} // namespace faces
