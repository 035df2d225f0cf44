#include <stillora/Photos.h>

#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "platform/dispatch/NSOperationQueue.h"
#include "platform/foundation/Lock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr auto kProgressInterval = std::chrono::milliseconds(100);

/// What the checking operations share with the thread that waits for them.
struct Findings {
    enum class Kind { NotLookedAt, Good, Bad, PassedOver };
    struct Finding {
        Kind kind = Kind::NotLookedAt;
        PhotoFacts facts;
        std::string reason;
    };

    std::atomic<bool> goesOn{true};
    platform::Lock lock;
    platform::Condition changed;
    std::vector<Finding> findings GUARDED_BY(lock);
    size_t done GUARDED_BY(lock) = 0;
};

std::chrono::sys_time<std::chrono::nanoseconds> timeOf(const timespec& time)
{
    return std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::seconds(time.tv_sec) +
                                                           std::chrono::nanoseconds(time.tv_nsec));
}

Findings::Finding lookInto(const PhotoCandidate& candidate, const std::function<bool()>& goesOn)
{
    Findings::Finding finding;
    finding.facts.path = candidate.path;
    const auto bad = [&](std::string reason) {
        finding.kind = Findings::Kind::Bad;
        finding.reason = std::move(reason);
        return finding;
    };
    struct stat status = {};
    if (stat(candidate.path.c_str(), &status) != 0)
        return bad(reasonOfErrno(errno));
    // Anything else might keep whoever opens it waiting.
    if (!S_ISREG(status.st_mode))
        return bad(localized("is not a regular file"));
    if (access(candidate.path.c_str(), R_OK) != 0)
        return bad(reasonOfErrno(errno));
    const bool mayBeAnything = candidate.origin == PhotoCandidate::Origin::FoundAsFile;
    if (status.st_size == 0 && !mayBeAnything)
        return bad(localized("is empty"));

    const auto answer = FileReader::shared().ask(PhotoQuestion{candidate.path}, goesOn);
    if (!answer)
        return bad(answer.error().message);
    if (answer->kind == PhotoLook::Kind::NoPhoto && mayBeAnything) {
        finding.kind = Findings::Kind::PassedOver;
        return finding;
    }
    if (answer->kind != PhotoLook::Kind::Good)
        return bad(answer->reason);
    finding.facts.size = answer->size;
    finding.facts.fileSize = status.st_size;
    finding.facts.isCutOff = answer->isCutOff;
    finding.facts.isProgressive = answer->isProgressive;
    finding.facts.fingerprint = answer->fingerprint;
    finding.facts.taken = answer->taken;
    finding.facts.modified = timeOf(status.st_mtim);
    finding.kind = Findings::Kind::Good;
    return finding;
}

} // namespace

std::string reasonOfCutOffPhoto()
{
    return localized("is damaged: its end is missing, and it is shown as far as it goes");
}

CheckedPhotos checkPhotos(const std::vector<PhotoCandidate>& candidates,
                          const std::function<bool(std::size_t)>& progress)
{
    const auto shared = std::make_shared<Findings>();
    {
        const platform::LockGuard guard(shared->lock);
        shared->findings.resize(candidates.size());
    }
    platform::NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(static_cast<int>(std::max(1u, std::thread::hardware_concurrency())));
    for (size_t i = 0; i < candidates.size(); ++i)
        queue.addOperationWithBlock([shared, i, candidate = candidates[i]] {
            Findings::Finding finding = lookInto(candidate, [&] { return shared->goesOn.load(); });
            const platform::LockGuard guard(shared->lock);
            shared->findings[i] = std::move(finding);
            ++shared->done;
            shared->changed.notify_all();
        });

    CheckedPhotos checked;
    for (;;) {
        size_t done = 0;
        {
            const platform::LockGuard guard(shared->lock);
            if (shared->done < candidates.size())
                shared->changed.wait_for(shared->lock, kProgressInterval);
            done = shared->done;
        }
        checked.isCancelled = progress && !progress(done);
        if (done == candidates.size() || checked.isCancelled)
            break;
    }
    if (checked.isCancelled) {
        queue.cancelAllOperations();
        // What is read at the moment ends with its reader.
        shared->goesOn = false;
        queue.waitUntilAllOperationsAreFinished();
        return checked;
    }
    const platform::LockGuard guard(shared->lock);
    for (size_t i = 0; i < shared->findings.size(); ++i) {
        Findings::Finding& finding = shared->findings[i];
        if (finding.kind == Findings::Kind::Good)
            checked.good.push_back(std::move(finding.facts));
        else if (finding.kind == Findings::Kind::Bad)
            checked.bad.push_back({std::move(finding.facts.path), std::move(finding.reason), i});
        else
            ++checked.passedOver;
    }
    return checked;
}

} // namespace stillora
