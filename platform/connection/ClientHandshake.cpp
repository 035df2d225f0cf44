#include "platform/connection/ClientHandshake.h"

#include "platform/foundation/LocalizedText.h"

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform {

namespace {

/// "OK" and an identifier of 32 digits; errors have some words.
constexpr size_t kLongestLine = 512;

/// Between two looks at whether to go on.
constexpr int kTickMilliseconds = 20;

/// How often the system may refuse to wait.
constexpr int kMostRefusedWaits = 50;

/// Waits until the socket may be read or written.
bool isReadyInTime(int socket, short events, const std::function<bool()>& goesOn)
{
    int refusals = 0;
    for (;;) {
        if (!goesOn()) {
            errno = ETIMEDOUT;
            return false;
        }
        pollfd wait{socket, events, 0};
        const int count = poll(&wait, 1, kTickMilliseconds);
        if (count > 0)
            return true;
        if (count < 0 && errno != EINTR && ++refusals > kMostRefusedWaits)
            return false;
        if (count < 0)
            usleep(kTickMilliseconds * 1000);
    }
}

bool canTryAgain()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

bool sendText(int socket, std::string_view text, const std::function<bool()>& goesOn)
{
    while (!text.empty()) {
        const ssize_t count = send(socket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count >= 0)
            text.remove_prefix(static_cast<size_t>(count));
        else if (!canTryAgain() || !isReadyInTime(socket, POLLOUT, goesOn))
            return false;
    }
    return true;
}

/// Byte by byte: what follows the line belongs to somebody else.
std::optional<std::string> receiveLine(int socket, const std::function<bool()>& goesOn)
{
    std::string line;
    while (!line.ends_with("\r\n")) {
        char byte = 0;
        const ssize_t count = recv(socket, &byte, 1, MSG_DONTWAIT);
        if (count == 1) {
            line += byte;
            if (line.size() <= kLongestLine)
                continue;
            errno = EPROTO;
        } else if (count == 0) {
            errno = ECONNRESET;
        } else if (canTryAgain() && isReadyInTime(socket, POLLIN, goesOn)) {
            continue;
        }
        return std::nullopt;
    }
    return line;
}

std::string hexadecimal(std::string_view text)
{
    static constexpr char kHexDigits[] = "0123456789abcdef";
    std::string digits;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        digits += kHexDigits[byte >> 4];
        digits += kHexDigits[byte & 0xF];
    }
    return digits;
}

} // namespace

bool greetService(int socket, const std::function<bool()>& goesOn, NSError* error)
{
    const auto refuse = [error](int errnoValue) {
        return fail(error, kNSPOSIXErrorDomain, errnoValue,
                    localized("Connection to the service failed: {}", {reasonOfErrno(errnoValue)}));
    };
    // The zero in front goes with the credentials, which the kernel knows anyway.
    const std::string greeting =
        std::string(1, '\0') + "AUTH EXTERNAL " + hexadecimal(std::to_string(geteuid())) + "\r\n";
    if (!sendText(socket, greeting, goesOn))
        return refuse(errno);
    const auto answer = receiveLine(socket, goesOn);
    if (!answer)
        return refuse(errno);
    if (!answer->starts_with("OK "))
        return refuse(EACCES);
    return sendText(socket, "BEGIN\r\n", goesOn) || refuse(errno);
}

} // namespace platform
