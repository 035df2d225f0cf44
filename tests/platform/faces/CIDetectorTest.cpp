#include "platform/faces/CIDetector.h"

#include <gtest/gtest.h>

using platform::CGImage;
using platform::CGRect;
using platform::CIDetector;

namespace {

class OneFace final : public CIDetector {
    std::vector<CGRect> featuresInImage(const CGImage&) override { return {{{1, 2}, {3, 4}}}; }
};

} // namespace

TEST(CIDetector, IsWhatItsFactoryMakes)
{
    CIDetector::setFaceDetectorFactory([] { return std::make_unique<OneFace>(); });
    const auto detector = CIDetector::detectorOfTypeFace();
    CIDetector::setFaceDetectorFactory({});
    ASSERT_NE(detector, nullptr);
    EXPECT_EQ(detector->featuresInImage({}), (std::vector<CGRect>{{{1, 2}, {3, 4}}}));
    EXPECT_EQ(CIDetector::detectorOfTypeFace(), nullptr);
}
