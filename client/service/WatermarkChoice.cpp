#include "client/service/WatermarkChoice.h"

#include "util/UserSettings.h"

#ifndef USUALLY_DRAWS_WATERMARK
#error "the build says what is usual"
#endif

namespace stillora {

bool drawsWatermark(Watermark watermark)
{
    if (watermark != Watermark::Usual)
        return watermark == Watermark::Drawn;
    return UserSettings::drawsWatermark().value_or(USUALLY_DRAWS_WATERMARK);
}

} // namespace stillora
