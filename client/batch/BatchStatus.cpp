#include "client/batch/BatchStatus.h"

#include "client/batch/Worker.h"
#include "client/batch/manifest/LineIndex.h"
#include "client/text/JSONValue.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <set>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace stillora {

namespace {

/// Of a log, its end: what is being made was begun not long ago.
constexpr int64_t kReadOfLog = 1 << 20;

/// The id of a movie that a machine has begun; empty where its log does not tell.
std::string idIn(const std::filesystem::path& log, const std::string& key)
{
    std::ifstream lines(log, std::ios::binary | std::ios::ate);
    const auto size = static_cast<int64_t>(lines.tellg());
    if (size < 0)
        return {};
    lines.seekg(std::max<int64_t>(0, size - kReadOfLog));
    std::string id;
    for (std::string line; std::getline(lines, line);) {
        JSONValue::Fault fault;
        if (line.find(key) == std::string::npos)
            continue;
        if (const auto event = JSONValue::read(line, fault); event && event->textOf("key") == key)
            id = event->textOf("id");
    }
    return id;
}

BatchStatus::Working workingOn(const StateFolder& state, const std::string& key, int claim)
{
    BatchStatus::Working working;
    working.piece = StateFolder::numberOfPiece(key);
    const std::filesystem::path file = state.claim(key, claim);
    if (const auto owner = Worker::ownerOf(file)) {
        working.machine = owner->machine;
        working.pid = owner->pid;
        working.hasEnded = owner->isOfThisSystem && !owner->isRunning;
        working.id = idIn(state.logs() / (owner->machine + ".jsonl"), key);
    }
    struct stat status = {};
    if (stat(file.c_str(), &status) == 0)
        working.silentSeconds =
            std::max(0.0, std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count() -
                              static_cast<double>(status.st_mtim.tv_sec));
    return working;
}

std::optional<BatchStatus::Failure> failureIn(const std::filesystem::path& file)
{
    const auto text = StateFolder::read(file);
    JSONValue::Fault fault;
    const auto value = text ? JSONValue::read(*text, fault) : std::nullopt;
    if (!value)
        return std::nullopt;
    return BatchStatus::Failure{value->textOf("id"),
                                static_cast<size_t>(std::max<int64_t>(0, value->wholeNumberOf("line"))),
                                value->textOf("reason")};
}

} // namespace

BatchStatus BatchStatus::of(const StateFolder& state)
{
    BatchStatus result;
    std::set<std::array<std::byte, 16>> keys;
    const auto index = LineIndex::open(state.lines());
    if (index)
        index->forEach([&](size_t, const LineIndex::Entry& entry) {
            if (entry.hasMovie())
                keys.insert(entry.key);
            return true;
        });
    result.movies = keys.size();
    state.forEach([&](const std::string& key, const StateFolder::Traces& traces) {
        // Lines that were taken out of the manifest do not count.
        if (index && !keys.contains(LineIndex::keyOf(StateFolder::keyOfMovie(key))))
            return;
        if (StateFolder::numberOfPiece(key) > 0) {
            result.pieces += traces.hasReceipt ? 1 : 0;
        } else if (traces.hasReceipt) {
            ++result.made;
        } else if (traces.hasFailure) {
            ++result.failed;
            if (result.failures.size() < kMostFailures)
                if (auto failure = failureIn(state.failure(key)))
                    result.failures.push_back(*std::move(failure));
        }
        if (const int claim = traces.newestClaim(); claim > 0)
            result.working.push_back(workingOn(state, key, claim));
    });
    std::ranges::sort(result.failures, {}, &Failure::line);
    return result;
}

} // namespace stillora
