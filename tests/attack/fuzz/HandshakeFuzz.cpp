#include "platform/connection/ClientHandshake.h"
#include "platform/foundation/FileDescriptor.h"
#include "tests/attack/fuzz/Checked.h"

#include <array>
#include <string>
#include <string_view>

#include <sys/socket.h>
#include <unistd.h>

using namespace platform;

// What a service answers to the greeting; the first byte chooses whether it then goes away.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    constexpr size_t kRoomOfSocket = 65536;
    if (length == 0 || length > kRoomOfSocket)
        return 0;
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        _exit(1);
    const FileDescriptor client(ends[0]);
    FileDescriptor service(ends[1]);
    const std::string_view answer(reinterpret_cast<const char*>(bytes) + 1, length - 1);
    if (send(service.get(), answer.data(), answer.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(answer.size()))
        _exit(1);
    if (bytes[0] % 2 == 0)
        shutdown(service.get(), SHUT_WR);
    NSError error;
    const bool isGreeted = greetService(
        client.get(), [] { return false; }, &error);
    const size_t end = answer.find("\r\n");
    const bool isLine = end != std::string_view::npos && end + 2 <= 512;
    mustHold(isGreeted == (isLine && answer.starts_with("OK ")), "a service says OK in a line");
    mustHold(isGreeted == error.localizedDescription.empty(), "a refusal has a reason");
    if (!isGreeted)
        return 0;
    // What follows the line belongs to somebody else.
    std::string rest(kRoomOfSocket, '\0');
    const ssize_t count = recv(client.get(), rest.data(), rest.size(), MSG_DONTWAIT);
    mustHold(std::string_view(rest).substr(0, count > 0 ? static_cast<size_t>(count) : 0) == answer.substr(end + 2),
             "no message is taken for an answer");
    return 0;
}
