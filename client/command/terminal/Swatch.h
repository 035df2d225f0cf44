#pragma once

#include <stillora/Types.h>

#include <string>

namespace stillora {

/// What a terminal can show.
enum class TerminalColors { None, Palette256, True };

/// What standard output can show: by the environment, where it is a terminal.
TerminalColors terminalColors();

/// "#7a6b5c"; components are clamped.
std::string hexOf(const Color& color);

/// A few blanks on a ground of the colour, or the nearest to it; empty where there are no colours.
std::string swatch(const Color& color, TerminalColors colors);

} // namespace stillora
