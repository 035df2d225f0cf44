#include "client/batch/JobGauge.h"
#include "client/batch/PeakMemory.h"
#include "client/batch/SlurmArray.h"
#include "client/batch/StateFolder.h"
#include "client/batch/Worker.h"
#include "tests/attack/fuzz/Checked.h"
#include "tests/attack/fuzz/FuzzedFile.h"

#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

using namespace stillora;

namespace {

void gauge(const std::string& text)
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(0, &processors);
    CPU_SET(CPU_SETSIZE - 1, &processors);
    JobGauge jobs(std::nullopt, 4);
    IdleTime time;
    // The machine as it was, and some time later.
    for (const std::string& part : {text.substr(0, text.size() / 2), text}) {
        std::istringstream lines(part);
        const double idle = time.share(lines, processors);
        mustHold(idle >= 0 && idle <= 1, "a share is one");
        std::istringstream tables(part);
        const int64_t available = bytesIn(tables, "MemAvailable");
        std::istringstream again(part);
        const int64_t peak = bytesIn(again, "VmHWM");
        mustHold(available >= 0 && peak >= 0, "memory is not less than none");
        jobs.measured({.idle = idle, .availableBytes = available, .peakBytes = peak}, jobs.allowed());
        mustHold(jobs.allowed() >= 1 && jobs.allowed() <= 8, "there is always a job");
    }
}

} // namespace

// What a batch reads of programs of Slurm, of tables of the system, and of files of other workers; the first byte
// chooses.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    if (length == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(bytes) + 1, length - 1);
    switch (bytes[0] % 3) {
    case 0:
        mustHold(SlurmArray::endOfArrays(text) >= 2, "an array has an index");
        if (const auto job = SlurmArray::jobIn(text))
            mustHold(!job->empty() && job->find_first_not_of("0123456789") == std::string::npos, "a job is a number");
        break;
    case 1:
        gauge(text);
        break;
    default: {
        const FuzzedFile claim({bytes + 1, length - 1});
        if (const auto owner = Worker::ownerOf(claim.path()))
            mustHold(!owner->name.empty(), "an owner has a name");
        const std::string movie = StateFolder::keyOfMovie(text);
        mustHold(StateFolder::numberOfPiece(movie) == 0, "a movie is no piece");
        mustHold(StateFolder::numberOfPiece(StateFolder::keyOfPiece(std::string(32, 'a'), length)) == length,
                 "a piece has its number");
    }
    }
    return 0;
}
