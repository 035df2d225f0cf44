#include "client/command/options/HelpText.h"

#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/foundation/LocaleEncoding.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace stillora {

namespace {

/// Narrower ones break the lines themselves.
constexpr int kLeastColumns = 40;
/// Where what an option does begins.
constexpr int kOptionColumn = 21;
/// Where what a command does begins.
constexpr int kCommandColumn = 21;
constexpr int kVerbColumn = 12;
constexpr int kStatusColumn = 7;

std::string blanks(int count)
{
    return std::string(static_cast<size_t>(std::max(count, 0)), ' ');
}

/// Writes for a terminal of so many columns.
class HelpWriter final {
public:
    explicit HelpWriter(int columns) : columns_(std::clamp(columns, kLeastColumns, kHelpColumns)) {}

    std::string helpOf(const CommandText& command) const;
    std::string generalHelp() const;

private:
    std::string wrapped(const std::string& label, const std::string& help, int column, int hanging = 0) const;
    std::string lineOf(const Option& option) const;
    std::string optionsOf(const CommandText& command) const;
    std::string usageOf(const CommandText& command) const;
    std::string verbsOf(const CommandText& command) const;
    std::string aboutOf(const CommandText& command) const;
    std::string statusesOf(const CommandText& command) const;

    const int columns_;
};

/// The words in lines that begin at a column, after what stands on the first line already; those after the first line
/// so much further to the right.
std::string HelpWriter::wrapped(const std::string& label, const std::string& help, int column, int hanging) const
{
    const std::string shown = platform::representableInLocale(help);
    std::string_view text = shown;
    std::string result;
    std::string line = label;
    // A blank is left between the two.
    if (!label.empty() && displayWidth(label) >= column) {
        result = label + "\n";
        line.clear();
    }
    line += blanks(column - displayWidth(line));
    bool isFirst = true;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        if (!isFirst && displayWidth(line) + 1 + displayWidth(word) > columns_) {
            result += line + "\n";
            line = blanks(column + hanging);
            isFirst = true;
        }
        line += (isFirst ? "" : " ");
        line += word;
        isFirst = false;
    }
    return result + line + "\n";
}

std::string HelpWriter::lineOf(const Option& option) const
{
    std::string label = "  ";
    if (option.letter != 0)
        label += fmt::format("-{}, ", option.letter);
    label += "--" + option.name;
    if (option.takesValue())
        label += " " + option.value;
    return wrapped(label, option.help, kOptionColumn);
}

std::string HelpWriter::optionsOf(const CommandText& command) const
{
    std::string text;
    for (const OptionGroup& group : optionGroups(command)) {
        text += group.title + "\n";
        for (const Option* option : group.options)
            text += lineOf(*option);
    }
    return text + lineOf(helpOption());
}

const CommandText& commandNamed(std::string_view name)
{
    return *std::ranges::find(commandTexts(), name, &CommandText::name);
}

std::string HelpWriter::usageOf(const CommandText& command) const
{
    constexpr int kHanging = 4;
    const std::string usage = localized("Usage:");
    std::string text;
    for (const CommandForm& form : command.forms)
        text += wrapped(text.empty() ? usage : "",
                        fmt::format("stillora {}{}{}{}", command.name,
                                    form.verb.empty() ? "" : fmt::format(" {}", form.verb),
                                    form.operands.empty() ? "" : fmt::format(" {}", form.operands),
                                    form.options.empty() ? "" : fmt::format(" {}", localized("[OPTION]..."))),
                        displayWidth(usage) + 1, kHanging);
    return text;
}

std::string HelpWriter::verbsOf(const CommandText& command) const
{
    std::string text;
    for (const CommandForm& form : command.forms)
        if (!form.verb.empty())
            text += wrapped(fmt::format("  {}", form.verb), form.summary, kVerbColumn);
    return text.empty() ? text : text + "\n";
}

std::string HelpWriter::aboutOf(const CommandText& command) const
{
    std::string text;
    for (const std::string& paragraph : command.about)
        text += fmt::format("{}{}", text.empty() ? "" : "\n", wrapped("", paragraph, 0));
    return text;
}

std::string HelpWriter::statusesOf(const CommandText& command) const
{
    std::string text = localized("Exit status:") + "\n";
    for (const auto& [status, meaning] : command.exitStatuses)
        text += wrapped(fmt::format("  {}", status), meaning, kStatusColumn);
    return text;
}

std::string HelpWriter::helpOf(const CommandText& command) const
{
    return fmt::format("{}\n{}\n{}{}\n{}", usageOf(command), aboutOf(command), verbsOf(command), optionsOf(command),
                       statusesOf(command));
}

std::string HelpWriter::generalHelp() const
{
    const std::string usage = localized("Usage:");
    const std::string indent = blanks(displayWidth(usage));
    std::string text = fmt::format("{} stillora {}\n{} stillora {}\n{} stillora --help | --version\n\n{}\n\n{}\n",
                                   usage, localized("COMMAND [ARGUMENT]..."), indent, localized("COMMAND --help"),
                                   indent, localized("Makes movies of photos."), localized("Commands:"));
    for (const CommandText& command : commandTexts())
        text += wrapped(fmt::format("  {}", command.name), command.summary, kCommandColumn);
    const CommandText& create = commandNamed("create");
    return fmt::format("{}\n{}\n{}\n{}\n", text, optionsOf(create), statusesOf(create),
                       localized("More: stillora COMMAND --help, man stillora"));
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
            const std::string title = command.forms.size() == 1 ? localized("Options of {}:", command.name)
                                      : isAll                   ? localized("Options of all:")
                                      : others.empty()
                                          ? localized("Options of {}:", last)
                                          : localized("Options of {} and {}:", fmt::join(others, ", "), last);
            group = groups.insert(groups.end(), {shared.verbs, {title, {}}});
        }
        group->second.options.push_back(shared.option);
    }
    std::vector<OptionGroup> result;
    for (auto& [verbs, group] : groups)
        result.push_back(std::move(group));
    return result;
}

std::string helpOf(std::string_view name, int columns)
{
    return HelpWriter(columns).helpOf(commandNamed(name));
}

std::string generalHelp(int columns)
{
    return HelpWriter(columns).generalHelp();
}

int helpColumns()
{
    winsize size = {};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : kHelpColumns;
}

} // namespace stillora
