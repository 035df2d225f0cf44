#include "video/VideoSize.h"

#include <algorithm>

using platform::CGSize;

namespace {

/// The largest size whose next larger one would not be filled by this length; exactly on a bound counts as filled.
template <auto side>
CGSize largestCoveredBy(double length)
{
    for (size_t i = 1; i < VideoSize::kSizes.size(); ++i)
        if (length < VideoSize::kSizes[i].*side)
            return VideoSize::kSizes[i - 1];
    return VideoSize::kSizes.back();
}

} // namespace

std::optional<CGSize> VideoSize::sizeNamed(int64_t quality)
{
    const auto* const named = std::ranges::find(kSizes, static_cast<double>(quality), &CGSize::height);
    return named == kSizes.end() ? std::nullopt : std::optional(*named);
}

CGSize VideoSize::sizeCoveredBy(CGSize smallest)
{
    const CGSize byHeight = largestCoveredBy<&CGSize::height>(smallest.height);
    const CGSize byWidth = largestCoveredBy<&CGSize::width>(smallest.width);
    return byWidth.width < byHeight.width || byWidth.height < byHeight.height ? byWidth : byHeight;
}
