#pragma once

#include <functional>
#include <string_view>

namespace stillora {

enum class QuestionAnswer { Yes, No, Stopped };

/// Whether somebody sits at a terminal who can be asked: it shows standard error, standard input is read from it, and
/// the program is in its foreground.
bool canAsk();

/// Asks on standard error and waits for a line of standard input. An empty one means yes, the end of the input no; what
/// is neither yes nor no, in English or in the user's language, is asked again.
/// @param question   without its end " [Y/n] "
/// @param isStopped  asked a few times a second
QuestionAnswer ask(std::string_view question, const std::function<bool()>& isStopped);

} // namespace stillora
