#pragma once

#include <string_view>

namespace stillora {

/// Whether file name `a` comes before `b` for a reader: numbers count by value ("img2" before "img10"), letters without
/// regard to case, names before longer names that begin alike ("img2.jpg" before "img2-1.jpg"). Names that differ at
/// all are never equal, so that a folder has one order on every machine, whatever its language.
bool isBeforeInNaturalOrder(std::string_view a, std::string_view b);

} // namespace stillora
