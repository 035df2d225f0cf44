#include "client/FileReason.h"

#include <cstring>

std::string reasonOfErrno(int errnoValue)
{
    const char* reason = strerrordesc_np(errnoValue);
    return reason ? reason : "error " + std::to_string(errnoValue);
}
