#include "client/questions/ReaderMessage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/uio.h>

namespace stillora {

namespace {

/// More than are passed is a fault of the other side; there is room for some, so that they can be closed.
constexpr size_t kMostDescriptors = 8;

/// Rooms for descriptors beside a message.
union ControlRoom {
    cmsghdr alignment;
    std::array<char, CMSG_SPACE(sizeof(int) * kMostDescriptors)> bytes;
};

msghdr headerOf(iovec& part)
{
    msghdr header = {};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    return header;
}

} // namespace

ssize_t sendPart(int socket, std::span<const std::byte> bytes, std::span<const int> descriptors)
{
    iovec part{const_cast<std::byte*>(bytes.data()), bytes.size()};
    msghdr header = headerOf(part);
    ControlRoom room = {};
    if (!descriptors.empty()) {
        header.msg_control = room.bytes.data();
        header.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
        cmsghdr* const control = CMSG_FIRSTHDR(&header);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(control), descriptors.data(), descriptors.size_bytes());
    }
    ssize_t sent = 0;
    do
        sent = sendmsg(socket, &header, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent;
}

ssize_t receivePart(int socket, std::span<std::byte> bytes, std::vector<platform::FileDescriptor>* descriptors)
{
    iovec part{bytes.data(), bytes.size()};
    msghdr header = headerOf(part);
    ControlRoom room = {};
    header.msg_control = room.bytes.data();
    header.msg_controllen = room.bytes.size();
    ssize_t received = 0;
    do
        received = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    while (received < 0 && errno == EINTR);
    if (received < 0)
        return received;
    for (cmsghdr* control = CMSG_FIRSTHDR(&header); control; control = CMSG_NXTHDR(&header, control)) {
        if (control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS)
            continue;
        for (size_t at = CMSG_LEN(0); at + sizeof(int) <= control->cmsg_len; at += sizeof(int)) {
            int number = -1;
            std::memcpy(&number, reinterpret_cast<const char*>(control) + at, sizeof number);
            platform::FileDescriptor owned(number);
            if (descriptors && descriptors->size() < kMostPassedDescriptors)
                descriptors->push_back(std::move(owned));
        }
    }
    return received;
}

} // namespace stillora
