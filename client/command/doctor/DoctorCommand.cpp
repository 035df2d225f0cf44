#include "client/command/doctor/DoctorCommand.h"

#include "client/command/doctor/Diagnosis.h"
#include "client/command/options/Arguments.h"
#include "client/command/terminal/CommandOutput.h"
#include "client/command/terminal/ExitStatus.h"
#include "client/text/JSONWriter.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <algorithm>

#include <fmt/format.h>

namespace stillora {

namespace {

using State = Finding::State;

std::string padded(const std::string& text, int columns)
{
    return text + std::string(static_cast<size_t>(std::max(columns - displayWidth(text), 0)), ' ');
}

std::string wordFor(State state)
{
    return state == State::Good      ? localized("ok")
           : state == State::Missing ? localized("missing")
                                     : localized("broken");
}

/// What follows the name.
std::string remarkOn(const Finding& finding)
{
    const bool isGood = finding.state == State::Good;
    const std::string detail = printable(finding.detail);
    if (isGood || finding.package.empty())
        return detail;
    return finding.need == Finding::Need::Needed
               ? localized("{}; install {}", detail, finding.package)
               : localized("{}; not needed for every movie, install {} for it", detail, finding.package);
}

std::string linesOf(const std::vector<Finding>& findings)
{
    int wordColumns = 0;
    int nameColumns = 0;
    for (const Finding& finding : findings) {
        wordColumns = std::max(wordColumns, displayWidth(wordFor(finding.state)));
        nameColumns = std::max(nameColumns, displayWidth(finding.name));
    }
    std::string text;
    for (const Finding& finding : findings) {
        const std::string line = fmt::format("{}  {}  {}", padded(wordFor(finding.state), wordColumns),
                                             padded(finding.name, nameColumns), remarkOn(finding));
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

JSONWriter asJSON(const std::vector<Finding>& findings, bool isGood)
{
    std::vector<JSONWriter> checks;
    for (const Finding& finding : findings) {
        JSONWriter& check = checks.emplace_back();
        check.add("check", finding.identifier).add("name", finding.name);
        check.add("state", finding.state == State::Good      ? "ok"
                           : finding.state == State::Missing ? "missing"
                                                             : "broken");
        check.add("needed", finding.need == Finding::Need::Needed).add("detail", finding.detail);
        if (finding.package.empty())
            check.addNull("package");
        else
            check.add("package", finding.package);
    }
    return JSONWriter().add("ok", isGood).add("checks", checks);
}

} // namespace

int runDoctorCommand(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("doctor", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return give(*answer);
    const auto& given = std::get<CommandArguments>(read);
    if (!given.operands().empty())
        return give(usageError(localized("no argument is taken, and {} is one", given.operands().front()), "doctor"));
    const std::vector<Finding> findings = diagnose();
    const bool isGood = std::ranges::none_of(findings, &Finding::isFault);
    return CommandOutput({}).give(given.has("json") ? asJSON(findings, isGood).text() + "\n" : linesOf(findings),
                                  localized("what was found could not be written to standard output"),
                                  isGood ? kExitDone : kExitFailed);
}

} // namespace stillora
