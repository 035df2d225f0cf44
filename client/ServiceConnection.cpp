#include "client/ServiceConnection.h"

#include "client/ClientError.h"
#include "client/LocalizedText.h"
#include "client/Text.h"

#include <chrono>

namespace stillora {

std::string lastComplaint(const std::vector<std::string>& logLines)
{
    for (auto line = logLines.rbegin(); line != logLines.rend(); ++line)
        if (!line->empty() && line->find("*!!*") == std::string::npos)
            return printable(*line);
    return {};
}

platform::NSXPCConnectionPtr connectionTo(ServiceProcess& service, const std::string& program, platform::NSError* error)
{
    platform::NSError reason;
    auto connection = platform::NSXPCConnection::connectionWithSocket(service.takeSocket(), &reason);
    if (connection)
        return connection;
    std::string how = reason.localizedDescription;
    if (service.waitForEnd(std::chrono::milliseconds(200)))
        how = localized("it ended {}", service.howItEnded());
    service.readLog();
    if (const std::string complaint = lastComplaint(service.logLines()); !complaint.empty())
        how = localized("{}, saying: {}", how, complaint);
    fail(error, ErrorCode::ServiceNotStarted, localized("the rendering service {} cannot be used: {}", program, how));
    return nullptr;
}

} // namespace stillora
