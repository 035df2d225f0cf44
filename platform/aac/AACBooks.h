#pragma once

#include "platform/aac/AACPacket.h"

namespace platform {

/// About how many bits the channel's values, sections and steps take with the best books; of steps, by the number of
/// bands alone.
int bitsOfValues(const AACChannel& channel);

/// Writes the books with which they take as few to `channel.books`.
void chooseBooks(AACChannel& channel);

} // namespace platform
