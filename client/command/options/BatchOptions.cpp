#include "client/command/options/BatchOptions.h"

#include "client/command/options/CreateOptions.h"
#include "client/text/LocalizedText.h"

#include <array>
#include <charconv>
#include <cstdlib>

namespace stillora {

namespace {

constexpr const char* kForm = "batch";

/// By which schedulers tell a task of an array which one it is: Slurm, PBS, LSF and Grid Engine.
constexpr std::array kArrayVariables{"SLURM_ARRAY_TASK_ID", "PBS_ARRAY_INDEX", "PBS_ARRAYID", "LSB_JOBINDEX",
                                     "SGE_TASK_ID"};

template <typename Number>
std::optional<Number> positive(const std::string& text)
{
    Number number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() && number > 0 ? std::optional(number)
                                                                                    : std::nullopt;
}

/// Reads the value of an option that takes a whole number. Returns what is wrong, or nothing.
template <typename Number>
std::string readNumber(const CommandArguments& given, const std::string& option, std::optional<Number>& into)
{
    const auto text = given.value(option);
    if (!text)
        return {};
    into = positive<Number>(*text);
    return into ? std::string() : localized("--{} takes a whole number from 1 on, not \"{}\"", option, *text);
}

/// Returns what is wrong, or nothing.
std::string readNumbers(const CommandArguments& given, BatchOptions& options)
{
    std::optional<int> lease;
    if (std::string fault = readNumber(given, "jobs", options.jobs); !fault.empty())
        return fault;
    if (std::string fault = readNumber(given, "index", options.index); !fault.empty())
        return fault;
    if (std::string fault = readNumber(given, "tasks", options.tasks); !fault.empty())
        return fault;
    if (std::string fault = readNumber(given, "lease", lease); !fault.empty())
        return fault;
    options.lease = std::chrono::seconds(lease.value_or(static_cast<int>(options.lease.count())));
    return {};
}

/// Returns what is wrong, or nothing.
std::string readTask(const CommandArguments& given, BatchOptions& options)
{
    using Task = BatchOptions::Task;
    constexpr std::array<std::pair<const char*, Task>, 4> kTasks{
        {{"check", Task::Check}, {"status", Task::Status}, {"slurm", Task::Slurm}, {"sum-up", Task::SumUp}}};
    const char* first = nullptr;
    for (const auto& [option, task] : kTasks) {
        if (!given.has(option))
            continue;
        if (first)
            return localized("--{} and --{} do not go together", first, option);
        first = option;
        options.task = task;
    }
    if (first && options.index)
        return localized("--{} and --{} do not go together", first, "index");
    if (given.has("wait") && options.task != Task::Slurm)
        return localized("--wait goes with --slurm");
    if (options.tasks && !options.index && options.task != Task::Slurm)
        return localized("--tasks goes with --index or --slurm");
    if (given.has("stop") && given.has("keep-going"))
        return localized("--{} and --{} do not go together", "stop", "keep-going");
    return {};
}

/// The first index that a scheduler has told.
void readEnvironment(BatchOptions& options)
{
    for (const char* const name : kArrayVariables) {
        const char* const text = getenv(name);
        const auto index = text ? positive<size_t>(text) : std::nullopt;
        if (index) {
            options.index = index;
            options.indexVariable = name;
            return;
        }
    }
}

/// Returns what is wrong, or nothing.
std::string readBatch(const CommandArguments& given, BatchOptions& options)
{
    const std::vector<std::string>& operands = given.operands();
    if (operands.empty() || operands.front().empty())
        return localized("no manifest was given");
    options.manifest = operands.front();
    if (std::string fault = readNumbers(given, options); !fault.empty())
        return fault;
    if (options.task == BatchOptions::Task::Make && !options.index && !given.has("check") && !given.has("status") &&
        !given.has("slurm") && !given.has("sum-up"))
        readEnvironment(options);
    if (std::string fault = readTask(given, options); !fault.empty())
        return fault;
    options.slurmOptions.assign(operands.begin() + 1, operands.end());
    if (!options.slurmOptions.empty() && options.task != BatchOptions::Task::Slurm)
        return localized("one manifest is taken, and {} is another argument", operands[1]);
    CreateOptions shared;
    if (const auto style = given.value("progress"))
        if (std::string fault = readMovieOption("progress", *style, shared, "--progress"); !fault.empty())
            return fault;
    options.progress = shared.progress;
    options.stopsAtFailure = given.has("stop");
    options.keepsGoing = given.has("keep-going");
    options.comparesContents = given.has("hash");
    options.makesAgain = given.has("again");
    options.waits = given.has("wait");
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    return {};
}

} // namespace

Parsed<BatchOptions> parseBatch(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read(kForm, arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    BatchOptions options;
    if (const std::string fault = readBatch(std::get<CommandArguments>(read), options); !fault.empty())
        return usageError(fault, kForm);
    return options;
}

} // namespace stillora
