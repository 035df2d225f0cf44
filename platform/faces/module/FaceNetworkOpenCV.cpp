#include "platform/faces/module/FaceNetwork.h"

#include <opencv2/core/ocl.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>
#include <opencv2/dnn/all_layers.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace faces {

namespace {

/// The input for which the model's inner sizes are written down in its file.
constexpr int kModelSide = 256;

/// Every input side is a multiple of the coarsest cell.
constexpr int kInputStep = 32;

/// No look from afar needs a longer side than this.
constexpr int kLeastLevelSide = 640;

/// The model's two grids: the side of a cell and how many boxes each has.
struct Grid {
    int cell;
    int boxesInCell;
    const char* scores;
    const char* boxes;
};
constexpr std::array<Grid, 2> kGrids = {Grid{16, 2, "Identity:0", "Identity_2:0"},
                                        Grid{32, 6, "Identity_1:0", "Identity_3:0"}};

/// A box is x, y, width, height and six points of the face.
constexpr int kNumbersOfBox = 16;

/// What an outsider of the library sees of it: nothing on standard error, one thread, no graphics card.
void quietLibrary()
{
    static const bool done = [] {
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
        cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return 0; });
        cv::setNumThreads(1);
        cv::ocl::setUseOpenCL(false);
        return true;
    }();
    (void)done;
}

int roundedUp(int size)
{
    return (size + kInputStep - 1) / kInputStep * kInputStep;
}

} // namespace

struct PicturePyramid::Levels {
    /// Each half of the one before.
    std::vector<cv::Mat> mats;
};

PicturePyramid::PicturePyramid(const FaceModulePicture& picture) : levels_(std::make_unique<Levels>())
{
    quietLibrary();
    auto& mats = levels_->mats;
    // The library only reads what it is given here.
    mats.emplace_back(static_cast<int>(picture.height), static_cast<int>(picture.width), CV_8UC4,
                      const_cast<uint8_t*>(picture.pixels), picture.bytesPerRow);
    while (std::max(mats.back().cols, mats.back().rows) >= 2 * kLeastLevelSide &&
           std::min(mats.back().cols, mats.back().rows) >= 2) {
        const cv::Mat& last = mats.back();
        // An odd row or column at the end is left out: twice two pixels each is what the quick way shrinks.
        const cv::Size even(last.cols / 2 * 2, last.rows / 2 * 2);
        cv::Mat half;
        cv::resize(last({0, 0, even.width, even.height}), half, even / 2, 0, 0, cv::INTER_AREA);
        mats.push_back(std::move(half));
    }
}

PicturePyramid::~PicturePyramid() = default;

size_t PicturePyramid::width() const
{
    return static_cast<size_t>(levels_->mats.front().cols);
}

size_t PicturePyramid::height() const
{
    return static_cast<size_t>(levels_->mats.front().rows);
}

struct FaceNetwork::Network {
    explicit Network(const std::string& modelPath) : net(cv::dnn::readNetFromONNX(modelPath))
    {
        net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
        for (const auto& name : net.getLayerNames()) {
            auto layer = net.getLayer(net.getLayerId(name));
            if (auto reshape = layer.dynamicCast<cv::dnn::ReshapeLayer>()) {
                // The lists of scores and boxes: as long as the input's size makes them.
                reshape->newShapeDesc = {1, -1, reshape->newShapeDesc.back()};
            } else if (layer->type == "Const" && layer->blobs.size() == 1 && layer->blobs[0].dims == 4) {
                // Zeros that are put beside the layers' own planes, as large as these.
                paddings.emplace_back(layer, std::array{layer->blobs[0].size[1], layer->blobs[0].size[2]});
                if (layer->blobs[0].size[2] != layer->blobs[0].size[3] || cv::countNonZero(layer->blobs[0].reshape(1)))
                    throw std::runtime_error("the model has other layers than expected");
            }
        }
    }

    void prepare(cv::Size input)
    {
        if (input == preparedFor)
            return;
        for (auto& [layer, planesAndSide] : paddings) {
            const auto [planes, side] = planesAndSide;
            const std::array<int, 4> shape = {1, planes, side * input.height / kModelSide,
                                              side * input.width / kModelSide};
            layer->blobs[0] = cv::Mat(4, shape.data(), CV_32F, cv::Scalar(0));
        }
        preparedFor = input;
    }

    cv::dnn::Net net;
    /// With the number of planes and the side of each that the model file has.
    std::vector<std::pair<cv::Ptr<cv::dnn::Layer>, std::array<int, 2>>> paddings;
    cv::Size preparedFor{kModelSide, kModelSide};
};

FaceNetwork::FaceNetwork(const std::string& modelPath)
{
    quietLibrary();
    network_ = std::make_unique<Network>(modelPath);
}

FaceNetwork::~FaceNetwork() = default;

std::vector<FaceBox> FaceNetwork::look(const PicturePyramid& picture, const FaceBox& part, size_t side,
                                       double leastScore)
{
    const double longSide = std::max(part.width, part.height);
    const auto target = static_cast<int>(side);
    // The smallest level that still has all the detail that is asked for.
    const auto& mats = picture.levels().mats;
    size_t level = 0;
    while (level + 1 < mats.size() && std::ldexp(longSide, -static_cast<int>(level) - 1) >= target)
        ++level;
    const cv::Mat& mat = mats[level];
    const double shrunk = std::ldexp(1, -static_cast<int>(level));
    const int x = cvFloor(part.x * shrunk);
    const int y = cvFloor(part.y * shrunk);
    const cv::Rect wanted(x, y, std::max(1, cvCeil((part.x + part.width) * shrunk) - x),
                          std::max(1, cvCeil((part.y + part.height) * shrunk) - y));
    const cv::Rect there = wanted & cv::Rect(0, 0, mat.cols, mat.rows);
    if (there.empty())
        return {};

    // Only what is there is scaled; the rest of the input stays black.
    const double scale = static_cast<double>(target) / std::max(wanted.width, wanted.height);
    const cv::Size input(roundedUp(std::max(1, cvRound(wanted.width * scale))),
                         roundedUp(std::max(1, cvRound(wanted.height * scale))));
    const cv::Point corner(cvRound((there.x - wanted.x) * scale), cvRound((there.y - wanted.y) * scale));
    const cv::Size size(
        std::clamp(cvRound(there.width * scale), 1, input.width - std::min(corner.x, input.width - 1)),
        std::clamp(cvRound(there.height * scale), 1, input.height - std::min(corner.y, input.height - 1)));
    cv::Mat scaled;
    cv::resize(mat(there), scaled, size, 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);

    const std::array<int, 4> shape = {1, input.height, input.width, 3};
    cv::Mat numbers(4, shape.data(), CV_32F, cv::Scalar(-1));
    for (int row = 0; row < size.height; ++row) {
        const uint8_t* from = scaled.ptr(row);
        float* to = numbers.ptr<float>() + (size_t(row + std::min(corner.y, input.height - 1)) * size_t(input.width) +
                                            size_t(std::min(corner.x, input.width - 1))) *
                                               3;
        for (int column = 0; column < size.width; ++column, from += 4, to += 3) {
            for (int channel = 0; channel < 3; ++channel)
                to[channel] = static_cast<float>(from[channel + 1]) / 127.5F - 1;
        }
    }

    network_->prepare(input);
    network_->net.setInput(numbers);
    std::vector<cv::Mat> outputs;
    network_->net.forward(outputs, {kGrids[0].scores, kGrids[1].scores, kGrids[0].boxes, kGrids[1].boxes});

    std::vector<FaceBox> found;
    // The library has no NaN of its own, but a damaged model's weights may have: such scores pass no comparison.
    const auto leastOutput = static_cast<float>(std::log(leastScore / (1 - leastScore)));
    for (size_t i = 0; i < kGrids.size(); ++i) {
        const auto [cell, boxesInCell, scoresName, boxesName] = kGrids[i];
        const int columns = input.width / cell;
        const int count = columns * (input.height / cell) * boxesInCell;
        const cv::Mat& scores = outputs[i];
        const cv::Mat& boxes = outputs[i + kGrids.size()];
        if (scores.total() != size_t(count) || boxes.total() != size_t(count) * kNumbersOfBox)
            throw std::runtime_error("the model answers in another form than expected");
        for (int j = 0; j < count; ++j) {
            const float output = scores.ptr<float>()[j];
            if (!(output >= leastOutput))
                continue;
            const float* box = boxes.ptr<float>() + size_t(j) * kNumbersOfBox;
            const double width = box[2];
            const double height = box[3];
            const int column = j / boxesInCell % columns;
            const int row = j / boxesInCell / columns;
            const double centreX = (column + 0.5) * cell + box[0];
            const double centreY = (row + 0.5) * cell + box[1];
            if (!(width > 0 && height > 0) || !std::isfinite(centreX + centreY + width + height))
                continue;
            const double toPicture = 1 / (scale * shrunk);
            found.push_back({wanted.x / shrunk + (centreX - width / 2) * toPicture,
                             wanted.y / shrunk + (centreY - height / 2) * toPicture, width * toPicture,
                             height * toPicture, 1 / (1 + std::exp(-static_cast<double>(output)))});
        }
    }
    return found;
}

} // namespace faces
