#pragma once

#include "client/ServiceProcess.h"
#include "platform/connection/NSXPCConnection.h"
#include "platform/foundation/NSError.h"

#include <string>

namespace stillora {

/// The newest line of the service's that tells of a failure; timings and empty lines do not. Empty if there is none.
std::string lastComplaint(const std::vector<std::string>& logLines);

/// Greets a service that was just started.
/// @param program  for the error
/// @return the connection, which still has to be resumed; null if the service does not answer as one
[[nodiscard]] platform::NSXPCConnectionPtr connectionTo(ServiceProcess& service, const std::string& program,
                                                        platform::NSError* error);

} // namespace stillora
