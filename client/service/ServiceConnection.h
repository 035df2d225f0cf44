#pragma once

#include "client/service/ServiceProcess.h"
#include "platform/connection/NSXPCConnection.h"
#include "platform/foundation/NSError.h"

#include <functional>
#include <string>

namespace stillora {

/// The newest line of the service's that tells of a failure; timings, empty lines and
/// that the computer may fall asleep do not. Empty if there is none.
std::string lastComplaint(const std::vector<std::string>& logLines);

/// Greets a service that was just started.
/// @param program  for the error
/// @param goesOn   asked every few hundredths of a second; false gives the waiting up
/// @return the connection, which still has to be resumed; null if the service does not answer as one within some
/// seconds
[[nodiscard]] platform::NSXPCConnectionPtr connectionTo(
    ServiceProcess& service, const std::string& program, platform::NSError* error,
    const std::function<bool()>& goesOn = [] { return true; });

} // namespace stillora
