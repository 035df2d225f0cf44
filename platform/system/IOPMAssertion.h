#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// A status; 0 is success.
using IOReturn = int32_t;
inline constexpr IOReturn kIOReturnSuccess = 0;
inline constexpr IOReturn kIOReturnBadArgument = static_cast<IOReturn>(0xe00002c2);
inline constexpr IOReturn kIOReturnNotFound = static_cast<IOReturn>(0xe00002f0);

using IOPMAssertionID = uint32_t;
inline constexpr IOPMAssertionID kIOPMNullAssertionID = 0;

using IOPMAssertionLevel = uint32_t;
inline constexpr IOPMAssertionLevel kIOPMAssertionLevelOff = 0;
inline constexpr IOPMAssertionLevel kIOPMAssertionLevelOn = 255;

inline constexpr std::string_view kIOPMAssertPreventUserIdleSystemSleep = "PreventUserIdleSystemSleep";

/// Holds off idle sleep until it is released or the process ends: an inhibitor of the login manager on the system bus.
/// Returns at once, as a bus may hang: the inhibitor is asked for in the background, and waited for until the release.
/// Where there is none to be had, the log says why and the assertion holds nothing off. Any thread.
///
/// @param type         kIOPMAssertPreventUserIdleSystemSleep; the only one there is here
/// @param level        on; off makes an assertion that holds nothing off
/// @param name         the reason, which the user is shown
/// @param assertionID  out: what to release; kIOPMNullAssertionID on failure
/// @return 0 on success; kIOReturnBadArgument for another type
IOReturn IOPMAssertionCreateWithName(std::string_view type, IOPMAssertionLevel level, const std::string& name,
                                     IOPMAssertionID* assertionID);

/// Connects to the system bus already, for the next assertion: for a process that is about to give up making
/// connections. A bus closes such a connection that is not used within seconds; the next assertion then holds nothing
/// off. Without a bus nothing happens. Makes no thread.
void IOPMAssertionConnect();

/// Whether idle sleep can be held off: asks for an inhibitor, and lets go of it. Any thread.
///
/// @param patience  how long a bus that says nothing is waited for
/// @param reason    out: why not
bool IOPMAssertionIsPossible(std::chrono::milliseconds patience, std::string* reason);

/// @return 0 on success; kIOReturnNotFound for what was never made, or was released before
IOReturn IOPMAssertionRelease(IOPMAssertionID assertionID);

} // namespace platform
