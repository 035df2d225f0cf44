#include "client/batch/SlurmArray.h"

#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/InstalledFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace stillora {

namespace {

/// Enough for any cluster to be busy, few enough for any scheduler to be quick.
constexpr size_t kUsualTasks = 1000;

constexpr std::string_view kDigits = "0123456789";

struct Answer {
    int status = -1;
    std::string text;
};

/// Runs a program of the user's path, and takes all that it writes.
Answer run(const std::vector<std::string>& command)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return {-1, reasonOfErrno(errno)};
    const platform::FileDescriptor reading(ends[0]);
    platform::FileDescriptor writing(ends[1]);
    std::vector<char*> arguments;
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writing.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, writing.get(), STDERR_FILENO);
    pid_t pid = 0;
    const int failure = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    writing.reset();
    if (failure != 0)
        return {-1, fmt::format("{}: {}", command.front(), reasonOfErrno(failure))};
    Answer answer;
    std::array<char, 4096> piece;
    for (ssize_t count = 0; (count = read(reading.get(), piece.data(), piece.size())) > 0;)
        answer.text.append(piece.data(), static_cast<size_t>(count));
    while (waitpid(pid, &answer.status, 0) < 0 && errno == EINTR) {
    }
    while (answer.text.ends_with('\n'))
        answer.text.pop_back();
    return answer;
}

/// For a shell.
std::string shellWord(const std::string& word)
{
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? std::string_view("'\\''") : std::string_view(&c, 1);
    return text + "'";
}

Result<std::string> submitScript(const std::filesystem::path& script, const std::string& text,
                                 const std::vector<std::string>& options)
{
    if (const int reason = StateFolder::write(script, text); reason != 0)
        return Error{ErrorCode::Failed, script, fmt::format("{}: {}", script.native(), reasonOfErrno(reason))};
    std::vector<std::string> command{"sbatch", "--parsable"};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(script.native());
    const Answer answer = run(command);
    if (answer.status != 0)
        return Error{ErrorCode::Failed, {}, localized("sbatch refuses the job: {}", answer.text)};
    if (auto job = SlurmArray::jobIn(answer.text))
        return *std::move(job);
    return Error{ErrorCode::Failed, {}, localized("sbatch tells no number of a job: {}", answer.text)};
}

} // namespace

size_t SlurmArray::endOfArrays(std::string_view written)
{
    size_t end = kUsualTasks + 1;
    if (const size_t found = written.find("MaxArraySize"); found != std::string_view::npos)
        if (const size_t digits = written.find_first_of(kDigits, found); digits != std::string_view::npos)
            std::from_chars(written.data() + digits, written.data() + written.size(), end);
    return std::max<size_t>(end, 2);
}

std::optional<std::string> SlurmArray::jobIn(std::string_view written)
{
    // "JOB" or "JOB;CLUSTER", on a line of its own among remarks.
    while (!written.empty()) {
        const size_t start = written.rfind('\n') + 1;
        const std::string_view line = written.substr(start);
        const std::string_view job = line.substr(0, line.find(';'));
        if (!job.empty() && job.find_first_not_of(kDigits) == std::string_view::npos)
            return std::string(job);
        written = written.substr(0, start == 0 ? 0 : start - 1);
    }
    return std::nullopt;
}

Result<SlurmArray::Jobs> SlurmArray::submit(const StateFolder& state, const Wish& wish)
{
    Jobs jobs;
    const size_t most = std::min(kUsualTasks, endOfArrays(run({"scontrol", "show", "config"}).text) - 1);
    jobs.tasks = std::max<size_t>(1, std::min(wish.tasks.value_or(most), wish.turns));
    const std::string command =
        fmt::format("exec {} batch {}", shellWord(platform::programFile()), shellWord(wish.manifest.native()));
    std::string options;
    for (const std::string& option : wish.taskOptions)
        options += fmt::format(" {}", shellWord(option));
    const std::filesystem::path output = state.path() / "tasks";
    mkdir(output.c_str(), 0777);
    const std::string head = "#!/bin/sh\n#SBATCH --requeue\n#SBATCH --open-mode=append\n";
    const auto array = submitScript(
        state.path() / "tasks.sh",
        fmt::format("{}#SBATCH --job-name=stillora\n{} --index \"$SLURM_ARRAY_TASK_ID\" --tasks {} --quiet "
                    "--jobs \"${{SLURM_CPUS_PER_TASK:-1}}\"{}\n",
                    head, command, jobs.tasks, options),
        [&] {
            std::vector<std::string> all{fmt::format("--output={}/%a.out", output.native())};
            all.insert(all.end(), wish.options.begin(), wish.options.end());
            all.push_back(fmt::format("--array=1-{}", jobs.tasks));
            return all;
        }());
    if (!array)
        return array.error();
    jobs.array = *array;
    const auto closing =
        submitScript(state.path() / "closing.sh",
                     fmt::format("{}#SBATCH --job-name=stillora-closing\n{} --sum-up\n", head, command), [&] {
                         std::vector<std::string> all{fmt::format("--output={}/closing.out", output.native())};
                         all.insert(all.end(), wish.options.begin(), wish.options.end());
                         all.push_back(fmt::format("--dependency=afterany:{}", jobs.array));
                         all.emplace_back("--kill-on-invalid-dep=yes");
                         return all;
                     }());
    if (!closing) {
        run({"scancel", jobs.array});
        return closing.error();
    }
    jobs.closing = *closing;
    return jobs;
}

bool SlurmArray::hasJob(const std::string& job)
{
    const Answer answer = run({"squeue", "--noheader", "--jobs", job, "--format=%T"});
    if (answer.status == 0)
        return !answer.text.empty();
    return answer.text.find("Invalid job id") == std::string::npos;
}

} // namespace stillora
