#pragma once

#include <cstdint>
#include <string_view>

namespace stillora {

/// Domain of the errors that the client library makes itself.
inline constexpr std::string_view kClientErrorDomain = "StilloraClientErrorDomain";

enum ClientErrorCode : int64_t {
    kClientErrorNothingToShow = 1,
    kClientErrorOutOfRange = 2,
    kClientErrorServiceNotFound = 3,
    kClientErrorServiceNotStarted = 4,
    kClientErrorServiceEnded = 5,
    kClientErrorServiceStalled = 6,
    kClientErrorServiceFailed = 7,
    kClientErrorDiskFull = 8,
    kClientErrorNoDocument = 9,
    kClientErrorDocumentDamaged = 10,
    kClientErrorDocumentTooNew = 11,
    kClientErrorDocumentExists = 12,
    kClientErrorDocumentChanged = 13,
    kClientErrorCancelled = 14,
};

} // namespace stillora
