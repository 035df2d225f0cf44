#pragma once

#include <stillora/Movie.h>

#include <string>
#include <vector>

namespace stillora {

/// Tells what will be heard, in one sentence: which pieces, for how long, where the music fades, and which sounds are
/// left out. Empty for a movie without sound.
std::string soundSentence(const MoviePlan& plan, const std::vector<SoundFacts>& sounds);

/// Why nothing is heard of a sound that the plan leaves out, as a sentence without its path.
std::string reasonOfUnheardSound();

} // namespace stillora
