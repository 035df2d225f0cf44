#pragma once

#include "platform/foundation/NSGeometry.h"

#include <vector>

namespace platform {

class CGContext;

/// Straight lines that are stroked as one: where they meet or overlap nothing is drawn twice. One thread at a time.
class NSBezierPath final {
public:
    /// Begins a line.
    void moveToPoint(CGPoint point) { elements_.push_back({Element::Kind::Move, point}); }
    /// Goes on from the last point. Without one, and to or from a point that is no place, there is no line.
    void lineToPoint(CGPoint point) { elements_.push_back({Element::Kind::Line, point}); }

    /// 1 at first.
    double lineWidth() const { return lineWidth_; }
    void setLineWidth(double width) { lineWidth_ = width; }

    /// Draws the lines, which end squarely at their points, in the context's stroke colour.
    void stroke(CGContext& context) const;

private:
    struct Element {
        enum class Kind { Move, Line };
        Kind kind;
        CGPoint point;
    };

    std::vector<Element> elements_;
    double lineWidth_ = 1;
};

} // namespace platform
