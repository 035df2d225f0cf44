#include "platform/foundation/NSLocale.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace platform {

namespace {

void appendLanguage(std::vector<std::string>& languages, std::string name)
{
    // "de_AT.UTF-8@euro": first with the country, then without.
    name = name.substr(0, name.find_first_of(".@"));
    if (name.empty() || name == "C" || name == "POSIX" || name.find('/') != std::string::npos)
        return;
    languages.push_back(name);
    if (const size_t country = name.find('_'); country != std::string::npos)
        languages.push_back(name.substr(0, country));
}

std::string& chosenLanguage()
{
    // Never destroyed: texts may still be asked for while the process ends.
    static auto& language = *new std::string;
    return language;
}

std::string valueOf(const char* variable)
{
    const char* text = getenv(variable);
    return text ? text : "";
}

} // namespace

std::vector<std::string> preferredLanguages()
{
    std::vector<std::string> languages;
    appendLanguage(languages, chosenLanguage());
    std::string locale;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        locale = valueOf(variable);
        if (!locale.empty())
            break;
    }
    // As gettext has it: the list of languages counts only where a language was chosen at all.
    const bool plain = locale.empty() || locale == "C" || locale == "POSIX";
    if (const std::string list = valueOf("LANGUAGE"); !list.empty() && !plain) {
        for (size_t begin = 0; begin <= list.size();) {
            const size_t end = std::min(list.find(':', begin), list.size());
            appendLanguage(languages, list.substr(begin, end - begin));
            begin = end + 1;
        }
    }
    appendLanguage(languages, locale);
    languages.emplace_back("en");
    return languages;
}

void setPreferredLanguage(std::string language)
{
    chosenLanguage() = std::move(language);
}

} // namespace platform
