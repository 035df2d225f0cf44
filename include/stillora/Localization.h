#pragma once

#include <stillora/Export.h>
#include <stillora/Types.h>

#include <string>
#include <string_view>

namespace stillora {

/// The text of one of the service's keys ("VideoCreationTitleRenderingVideo"), or of one of this program's own texts,
/// which are written in English, in the user's language; itself where it is not known. Any thread.
STILLORA_EXPORT std::string localized(std::string_view text);

/// A length of time in minutes and seconds, in the user's language: "62 minutes, 5 seconds".
STILLORA_EXPORT std::string lengthInWords(Seconds length);

/// Chooses the user's language, the one that the user has chosen for Stillora or else that of the locale, and finds the
/// translations of an installed program or of the folder it was built in. Numbers keep the C locale. Called once at
/// start, before other threads run.
STILLORA_EXPORT void setUpLocalization();

} // namespace stillora
