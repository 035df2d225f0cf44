#include "client/service/ServiceConnection.h"

#include "client/processes/WorkingClock.h"
#include "client/text/ClientError.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <chrono>
#include <limits>

namespace stillora {

namespace {

/// A service answers in hundredths of a second, on a busy machine with a cold disk in some seconds.
constexpr std::chrono::seconds kLongestGreeting{8};

} // namespace

std::string lastComplaint(const std::vector<std::string>& logLines)
{
    for (auto line = logLines.rbegin(); line != logLines.rend(); ++line)
        if (!line->empty() && line->find("*!!*") == std::string::npos && !line->starts_with("IOPMAssertion"))
            return printable(*line);
    return {};
}

platform::NSXPCConnectionPtr connectionTo(ServiceProcess& service, const std::string& program, platform::NSError* error,
                                          const std::function<bool()>& goesOn)
{
    platform::NSError reason;
    const auto deadline = WorkingClock::now() + kLongestGreeting;
    auto connection = platform::NSXPCConnection::connectionWithSocket(
        service.takeSocket(), &reason, std::numeric_limits<double>::infinity(), [&] {
            // One whose log nobody reads may have to wait before it can answer.
            service.readLog();
            return WorkingClock::now() < deadline && goesOn();
        });
    if (connection)
        return connection;
    std::string how = reason.localizedDescription;
    if (WorkingClock::now() >= deadline)
        how = localized("it did not answer within {}", secondsText(kLongestGreeting));
    else if (service.waitForEnd(std::chrono::milliseconds(200)))
        how = localized("it ended {}", service.howItEnded());
    service.readLog();
    if (const std::string complaint = lastComplaint(service.logLines()); !complaint.empty())
        how = localized("{}, saying: {}", how, complaint);
    fail(error, ErrorCode::ServiceNotStarted, localized("the rendering service {} cannot be used: {}", program, how));
    return nullptr;
}

} // namespace stillora
