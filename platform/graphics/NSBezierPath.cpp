#include "platform/graphics/NSBezierPath.h"

#include "platform/graphics/CGContext.h"

#include <cmath>

namespace platform {

void NSBezierPath::stroke(CGContext& context) const
{
    // After a point that is no place the path has none, until it is moved to one.
    bool hasPoint = false;
    for (const Element& element : elements_) {
        const bool isPlace = std::isfinite(element.point.x) && std::isfinite(element.point.y);
        if (isPlace && element.kind == Element::Kind::Move)
            context.moveToPoint(element.point);
        else if (isPlace && hasPoint)
            context.addLineToPoint(element.point);
        hasPoint = isPlace && (element.kind == Element::Kind::Move || hasPoint);
    }
    context.setLineWidth(lineWidth_);
    context.strokePath();
}

} // namespace platform
