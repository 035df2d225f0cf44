// usage: stillora-describe bash|zsh|fish|man [TRANSLATIONS [SUFFIX]] < TEMPLATE
// Fills a template of a completion or of the manual with the table of options, in English or, with a folder of
// translations, in the language of the environment. With a suffix only the places that end in it are filled, so that a
// template can have several languages, one run each. Runs while the project is built, and is not installed.

#include "client/command/options/HelpText.h"
#include "client/command/options/OptionTable.h"
#include "client/text/LocalizedText.h"
#include "platform/foundation/NSBundle.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

using namespace stillora;

namespace {

/// By what stands between two @ in the template.
using Fillings = std::map<std::string, std::string, std::less<>>;

std::string nameOf(const CommandText& command, const CommandForm& form)
{
    return form.verb.empty() ? command.name : command.name + " " + form.verb;
}

/// Calls with each form's full name.
void forEachForm(const std::function<void(const std::string& name, const CommandForm& form)>& call)
{
    for (const CommandText& command : commandTexts())
        for (const CommandForm& form : command.forms)
            call(nameOf(command, form), form);
}

/// "-o --output", as they are typed.
std::string typedForms(const Option& option)
{
    return option.letter == 0 ? fmt::format("--{}", option.name) : fmt::format("-{} --{}", option.letter, option.name);
}

/// The help up to where details begin. A comma is no such place: in German one stands before every clause.
std::string shortHelp(const Option& option)
{
    return option.help.substr(0, option.help.find_first_of(";:("));
}

std::string trimmed(std::string text)
{
    // French has one before a colon.
    constexpr std::string_view kNoBreakSpace = "\u00a0";
    for (;;) {
        if (text.ends_with(' ') || text.ends_with('\n'))
            text.pop_back();
        else if (text.ends_with(kNoBreakSpace))
            text.erase(text.size() - kNoBreakSpace.size());
        else
            return text;
    }
}

std::string namesOfCommands()
{
    std::vector<std::string> names;
    for (const CommandText& command : commandTexts())
        names.push_back(command.name);
    return fmt::format("{}", fmt::join(names, " "));
}

std::string verbsOf(const CommandText& command)
{
    std::string verbs;
    for (const CommandForm& form : command.forms)
        if (!form.verb.empty())
            verbs += fmt::format("{}{}", verbs.empty() ? "" : " ", form.verb);
    return verbs;
}

// bash

/// A pattern of extensions, as the template's variables hold them.
std::string bashPattern(Offer offer)
{
    switch (offer) {
    case Offer::Photos:
        return "\"$photos\"";
    case Offer::Sounds:
        return "\"$sounds\"";
    case Offer::PhotosAndSounds:
        return "\"$photos|$sounds\"";
    case Offer::Media:
        return "\"$photos|$sounds|$movies\"";
    case Offer::PNGPictures:
        return "png";
    case Offer::Covers:
        return "'png|jpg|jpeg'";
    case Offer::M4AFiles:
        return "m4a";
    case Offer::Files:
        return "'*'";
    case Offer::Nothing:
    case Offer::Words:
    case Offer::Folders:
        break;
    }
    return "''";
}

std::string bashOffer(const Option& option)
{
    if (option.offer == Offer::Words)
        return fmt::format("_stillora_words '{}'; return", fmt::join(option.words, " "));
    return option.offer == Offer::Nothing ? "return"
                                          : fmt::format("_stillora_files {}; return", bashPattern(option.offer));
}

Fillings bashFillings()
{
    Fillings fillings{{"COMMANDS", namesOfCommands()}};
    std::set<std::string> valued;
    for (const CommandText& command : commandTexts())
        if (const std::string verbs = verbsOf(command); !verbs.empty())
            fillings["VERBS"] += fmt::format("        {}) verbs='{}' ;;\n", command.name, verbs);
    forEachForm([&](const std::string& name, const CommandForm& form) {
        std::string options;
        for (const Option* option : form.options) {
            options += fmt::format("{} ", typedForms(*option));
            if (!option->takesValue())
                continue;
            valued.insert(typedForms(*option));
            const std::string letter = option->letter == 0 ? "" : fmt::format("'{} -{}' | ", name, option->letter);
            fillings["VALUES"] +=
                fmt::format("            {}'{} --{}') {} ;;\n", letter, name, option->name, bashOffer(*option));
        }
        fillings["OPTIONS"] += fmt::format("        '{}') options='{}-h --help' files={}{} ;;\n", name, options,
                                           bashPattern(form.offer), form.startsWithDocument ? " document=yes" : "");
    });
    fillings["VALUED"] = fmt::format("{}", fmt::join(valued, " "));
    return fillings;
}

// zsh

std::string zshPattern(Offer offer)
{
    switch (offer) {
    case Offer::Photos:
        return "_files -g '$photos'";
    case Offer::Sounds:
        return "_files -g '$sounds'";
    case Offer::PhotosAndSounds:
        return "_files -g '($photos|$sounds)'";
    case Offer::Media:
        return "_files -g '($photos|$sounds|$movies)'";
    case Offer::PNGPictures:
        return "_files -g '*.(#i)png'";
    case Offer::Covers:
        return "_files -g '*.(#i)(png|jpg|jpeg)'";
    case Offer::M4AFiles:
        return "_files -g '*.(#i)m4a'";
    case Offer::Folders:
        return "_files -/";
    case Offer::Files:
        return "_files";
    case Offer::Nothing:
    case Offer::Words:
        break;
    }
    return "";
}

/// One option as _arguments wants it.
std::string zshSpec(const Option& option)
{
    const std::string names = fmt::format("{}--{}", option.isRepeatable ? "*" : "", option.name);
    std::string spec;
    if (option.letter != 0)
        spec = fmt::format("'(-{0} --{1})'{{-{0},--{1}}}", option.letter, option.name);
    std::string rest = fmt::format("[{}]", trimmed(shortHelp(option)));
    if (option.takesValue()) {
        std::string value = option.value;
        std::erase_if(value, [](char c) { return c == '[' || c == ']'; });
        rest += fmt::format(":{}:{}", value,
                            option.offer == Offer::Words ? fmt::format("({})", fmt::join(option.words, " "))
                                                         : zshPattern(option.offer));
    }
    return spec.empty() ? fmt::format("\"{}{}\"", names, rest) : fmt::format("{}\"{}\"", spec, rest);
}

/// What belongs to no command alone.
Fillings commonFillings()
{
    return {{"HELP", localized("show this help")}, {"VERSION", localized("show the version")}};
}

Fillings zshFillings()
{
    Fillings fillings = commonFillings();
    for (const CommandText& command : commandTexts()) {
        fillings["COMMANDS"] += fmt::format("    '{}:{}'\n", command.name, command.summary);
        if (verbsOf(command).empty())
            continue;
        fillings["VERBS"] += fmt::format("    {})\n        verbs=(\n", command.name);
        for (const CommandForm& form : command.forms)
            fillings["VERBS"] += fmt::format("            \"{}:{}\"\n", form.verb, form.summary);
        fillings["VERBS"] += "        )\n        ;;\n";
    }
    forEachForm([&](const std::string& name, const CommandForm& form) {
        std::string text = fmt::format("    '{}')\n        _arguments -S $help", name);
        for (const Option* option : form.options)
            text += fmt::format(" \\\n            {}", zshSpec(*option));
        if (form.startsWithDocument)
            text += " \\\n            '1:document:_files -/'";
        if (form.offer != Offer::Nothing)
            text += fmt::format(" \\\n            \"*:file:{}\"", zshPattern(form.offer));
        fillings["OPTIONS"] += text + "\n        ;;\n";
    });
    return fillings;
}

// fish

std::string fishQuoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    quoted += '\'';
    return quoted;
}

std::string fishValue(const Option& option)
{
    if (!option.takesValue())
        return "";
    if (option.offer == Offer::Words)
        return fmt::format(" -x -a {}", fishQuoted(fmt::format("{}", fmt::join(option.words, " "))));
    if (option.offer == Offer::Folders)
        return " -x -a '(__fish_complete_directories)'";
    return option.offer == Offer::Nothing ? " -x" : " -r -F";
}

Fillings fishFillings()
{
    std::string text;
    for (const CommandText& command : commandTexts()) {
        text += fmt::format("complete -c stillora -n __stillora_at -a {} -d {}\n", command.name,
                            fishQuoted(command.summary));
        for (const CommandForm& form : command.forms)
            if (!form.verb.empty())
                text += fmt::format("complete -c stillora -n '__stillora_at {}' -a {} -d {}\n", command.name, form.verb,
                                    fishQuoted(form.summary));
    }
    forEachForm([&](const std::string& name, const CommandForm& form) {
        const std::string condition = fmt::format("complete -c stillora -n '__stillora_in {}'", name);
        text += condition + (form.offer == Offer::Nothing && form.startsWithDocument
                                 ? " -a '(__fish_complete_directories)'\n"
                                 : " -F\n");
        for (const Option* option : form.options)
            text += fmt::format("{}{} -l {}{} -d {}\n", condition,
                                option->letter == 0 ? "" : fmt::format(" -s {}", option->letter), option->name,
                                fishValue(*option), fishQuoted(trimmed(shortHelp(*option))));
    });
    Fillings fillings = commonFillings();
    fillings["COMPLETIONS"] = text;
    return fillings;
}

// The manual

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        if (c == '-' || c == '\\')
            result += '\\';
        result += c == '\\' ? 'e' : c;
    }
    return result;
}

/// With a capital, where it begins with a letter of ASCII or of Latin-1, in UTF-8.
std::string capitalized(std::string text)
{
    const auto byte = [&text](size_t i) { return static_cast<unsigned char>(i < text.size() ? text[i] : '\0'); };
    if (byte(0) < 0x80)
        text.front() = static_cast<char>(std::toupper(byte(0)));
    else if (byte(0) == 0xC3 && byte(1) >= 0xA0 && byte(1) <= 0xBE && byte(1) != 0xB7)
        text[1] = static_cast<char>(byte(1) - 0x20);
    return text;
}

/// The help as a sentence, and what the manual adds to it. The name of the value stands in italics.
std::string sentencesOf(const Option& option)
{
    std::string text = fmt::format("{}.{}{}", option.help, option.more.empty() ? "" : " ", option.more);
    text = escaped(capitalized(text));
    const std::string value = escaped(option.value.substr(0, option.value.find_first_of("[@.")));
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const auto isLetter = [&](size_t i) {
            return i < text.size() && std::isalnum(static_cast<unsigned char>(text[i])) != 0;
        };
        const bool isValue = !value.empty() && text.compare(at, value.size(), value) == 0 &&
                             (at == 0 || !isLetter(at - 1)) && !isLetter(at + value.size());
        if (isValue)
            result += fmt::format("\\fI{}\\fR", value);
        else
            result += text[at];
        at += isValue ? value.size() : 1;
    }
    return result;
}

Fillings manualFillings()
{
    Fillings fillings;
    for (const CommandText& command : commandTexts()) {
        std::string text;
        for (const OptionGroup& group : optionGroups(command)) {
            if (command.forms.size() > 1)
                text += fmt::format(".PP\n{}\n", group.title);
            for (const Option* option : group.options) {
                text += ".TP\n";
                if (option->letter != 0)
                    text += fmt::format("\\fB\\-{}\\fR, ", option->letter);
                text += fmt::format("\\fB\\-\\-{}\\fR", escaped(option->name));
                if (option->takesValue())
                    text += fmt::format(" \\fI{}\\fR", escaped(option->value));
                text += fmt::format("\n{}\n", sentencesOf(*option));
            }
        }
        fillings[fmt::format("OPTIONS {}", command.name)] = text;
    }
    return fillings;
}

/// @param suffix  of the places to be filled; without one, all are
/// @return whether the template asks for nothing that is not there
bool fill(const std::string& text, const Fillings& fillings, const std::string& suffix)
{
    bool isWhole = true;
    for (size_t at = 0; at < text.size();) {
        const size_t start = text.find('@', at);
        const size_t end = start == std::string::npos ? start : text.find('@', start + 1);
        if (end == std::string::npos) {
            std::cout << text.substr(at);
            break;
        }
        std::string name = text.substr(start + 1, end - start - 1);
        const bool isName = !name.empty() && std::isupper(static_cast<unsigned char>(name.front())) != 0 &&
                            name.find_first_of("\n;\"") == std::string::npos;
        if (isName && !name.ends_with(suffix)) {
            std::cout << text.substr(at, end + 1 - at);
            at = end + 1;
            continue;
        }
        if (isName)
            name.erase(name.size() - suffix.size());
        const auto filling = fillings.find(name);
        if (!isName || filling == fillings.end()) {
            if (isName) {
                std::cerr << "stillora-describe: nothing is known of @" << name << "@\n";
                isWhole = false;
            }
            std::cout << text.substr(at, start + 1 - at);
            at = start + 1;
            continue;
        }
        std::cout << text.substr(at, start - at) << trimmed(filling->second);
        at = end + 1;
    }
    return isWhole && std::cout.flush();
}

} // namespace

int main(int argc, char** argv)
{
    const std::map<std::string, Fillings (*)(), std::less<>> kinds{
        {"bash", bashFillings}, {"zsh", zshFillings}, {"fish", fishFillings}, {"man", manualFillings}};
    const auto kind = kinds.find(argc >= 2 && argc <= 4 ? argv[1] : "");
    if (kind == kinds.end()) {
        std::cerr << "usage: stillora-describe bash|zsh|fish|man [TRANSLATIONS [SUFFIX]] < TEMPLATE\n";
        return 2;
    }
    if (argc >= 3)
        platform::NSBundle::mainBundle().setLocalizations(argv[2], "stillora");
    const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
    return fill(text, kind->second(), argc == 4 ? fmt::format(" {}", argv[3]) : std::string()) ? 0 : 1;
}
