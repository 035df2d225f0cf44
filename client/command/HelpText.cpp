#include "client/command/HelpText.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

constexpr size_t kColumns = 80;
/// Where what an option does begins.
constexpr size_t kTextColumn = 21;

/// The words in lines that begin at the text's column, after what stands on the first line already.
std::string wrapped(std::string line, std::string_view text)
{
    std::string result;
    if (line.size() >= kTextColumn) {
        result = line + "\n";
        line.clear();
    }
    line.resize(kTextColumn, ' ');
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        const bool isFirst = line.size() == kTextColumn;
        if (!isFirst && line.size() + 1 + word.size() > kColumns) {
            result += line + "\n";
            line.assign(kTextColumn, ' ');
            line += word;
            continue;
        }
        line += (isFirst ? "" : " ");
        line += word;
    }
    return result + line + "\n";
}

std::string lineOf(const Option& option)
{
    std::string label = "  ";
    if (option.letter != 0)
        label += fmt::format("-{}, ", option.letter);
    label += "--" + option.name;
    if (option.takesValue())
        label += " " + option.value;
    return wrapped(std::move(label), option.help);
}

std::string optionsOf(const CommandText& command)
{
    std::string text;
    for (const OptionGroup& group : optionGroups(command)) {
        text += group.title + ":\n";
        for (const Option* option : group.options)
            text += lineOf(*option);
    }
    return text + lineOf(helpOption());
}

const CommandText& commandNamed(std::string_view name)
{
    return *std::ranges::find(commandTexts(), name, &CommandText::name);
}

std::string usageOf(const CommandText& command)
{
    std::string text;
    for (const CommandForm& form : command.forms)
        text += fmt::format("{} stillora {}{} {}{}\n", text.empty() ? "Usage:" : "      ", command.name,
                            form.verb.empty() ? "" : " " + form.verb, form.operands,
                            form.options.empty() ? "" : " [OPTION]...");
    return text;
}

std::string verbsOf(const CommandText& command)
{
    std::string text;
    for (const CommandForm& form : command.forms)
        if (!form.verb.empty())
            text += fmt::format("  {:<9} {}\n", form.verb, form.summary);
    return text.empty() ? text : text + "\n";
}

} // namespace

std::vector<OptionGroup> optionGroups(const CommandText& command)
{
    struct Shared {
        const Option* option;
        std::vector<std::string> verbs;
    };
    std::vector<Shared> all;
    for (const CommandForm& form : command.forms) {
        for (const Option* option : form.options) {
            auto known = std::ranges::find(all, option, &Shared::option);
            if (known == all.end())
                known = all.insert(known, Shared{option, {}});
            known->verbs.push_back(form.verb);
        }
    }
    std::ranges::stable_sort(all, {}, [](const Shared& shared) { return shared.verbs.size(); });

    std::vector<std::pair<std::vector<std::string>, OptionGroup>> groups;
    for (const Shared& shared : all) {
        auto group = std::ranges::find_if(groups, [&](const auto& each) { return each.first == shared.verbs; });
        if (group == groups.end()) {
            const bool isAll = shared.verbs.size() == command.forms.size();
            const std::string last = shared.verbs.back();
            const std::vector<std::string> others(shared.verbs.begin(), shared.verbs.end() - 1);
            const std::string title = command.forms.size() == 1 ? "Options of " + command.name
                                      : isAll                   ? "Options of all"
                                      : others.empty()
                                          ? "Options of " + last
                                          : fmt::format("Options of {} and {}", fmt::join(others, ", "), last);
            group = groups.insert(groups.end(), {shared.verbs, {title, {}}});
        }
        group->second.options.push_back(shared.option);
    }
    std::vector<OptionGroup> result;
    for (auto& [verbs, group] : groups)
        result.push_back(std::move(group));
    return result;
}

std::string helpOf(std::string_view name)
{
    const CommandText& command = commandNamed(name);
    return fmt::format("{}\n{}\n{}{}\nExit status:\n{}", usageOf(command), command.about, verbsOf(command),
                       optionsOf(command), command.exitStatuses);
}

std::string generalHelp()
{
    std::string text = "Usage: stillora COMMAND [ARGUMENT]...\n"
                       "       stillora COMMAND --help\n"
                       "       stillora --help | --version\n\n"
                       "Makes movies of photos.\n\n"
                       "Commands:\n";
    for (const CommandText& command : commandTexts())
        text += fmt::format("  {:<18} {}\n", command.name, command.summary);
    const CommandText& create = commandNamed("create");
    return text + "\n" + optionsOf(create) + "\nExit status:\n" + create.exitStatuses +
           "\nMore: stillora COMMAND --help, man stillora\n";
}

} // namespace stillora
