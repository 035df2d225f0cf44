// Runs a command, and lets some system call of one program in it fail.
//
// usage: refused_calls PROGRAM CALL ERRNO FIRST LAST REPORT COMMAND...
//
// Calls FIRST to LAST of CALL, counted from 1 over all processes that run the program of the name PROGRAM, fail with
// ERRNO (a number); how many there were altogether is written to the file REPORT. Exits as the command does. The kernel
// asks this process about each call, so that the programs need neither a debugger nor a library of ours.

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

/// A call by its name, with what the C library takes instead of it.
const std::map<std::string, std::vector<int>> kCalls = {
    {"openat", {SYS_openat}},
    {"read", {SYS_read}},
    {"write", {SYS_write}},
    {"pread64", {SYS_pread64}},
    {"pwrite64", {SYS_pwrite64}},
    {"renameat2", {SYS_renameat2}},
    {"linkat", {SYS_linkat}},
#ifdef SYS_mkdir
    {"mkdir", {SYS_mkdir, SYS_mkdirat}},
    {"unlinkat", {SYS_unlinkat, SYS_unlink}},
    {"poll", {SYS_poll, SYS_ppoll}},
#else
    {"mkdir", {SYS_mkdirat}},
    {"unlinkat", {SYS_unlinkat}},
    {"poll", {SYS_ppoll}},
#endif
    {"fsync", {SYS_fsync}},
    {"fallocate", {SYS_fallocate}},
    {"ftruncate", {SYS_ftruncate}},
    {"mmap", {SYS_mmap}},
    {"clone3", {SYS_clone3, SYS_clone}},
    {"socketpair", {SYS_socketpair}},
    {"getrandom", {SYS_getrandom}},
};

[[noreturn]] void leave(const char* what)
{
    std::fprintf(stderr, "refused_calls: %s: %s\n", what, std::strerror(errno));
    std::_Exit(125);
}

/// From now on this process's calls are asked about at the descriptor that is returned.
int watchCalls(const std::vector<int>& calls)
{
    std::vector<sock_filter> filter;
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const int call : calls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

/// The only message that ever goes through the socket.
struct DescriptorMessage {
    char byte = 0;
    iovec part{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr header{};

    DescriptorMessage()
    {
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
};

void sendDescriptor(int socket, int descriptor)
{
    DescriptorMessage message;
    cmsghdr* const part = CMSG_FIRSTHDR(&message.header);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
    if (sendmsg(socket, &message.header, 0) != 1)
        leave("sendmsg");
}

int receiveDescriptor(int socket)
{
    DescriptorMessage message;
    int descriptor = -1;
    if (recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC) == 1)
        if (const cmsghdr* part = CMSG_FIRSTHDR(&message.header); part && part->cmsg_type == SCM_RIGHTS)
            std::memcpy(&descriptor, CMSG_DATA(part), sizeof descriptor);
    return descriptor;
}

bool runs(unsigned process, const std::string& program)
{
    std::array<char, 4096> path{};
    const std::string link = "/proc/" + std::to_string(process) + "/exe";
    const ssize_t length = readlink(link.c_str(), path.data(), path.size());
    const std::string name(path.data(), length > 0 ? static_cast<size_t>(length) : 0);
    return name.ends_with("/" + program);
}

/// Whether it writes or reads what threads wake each other by, which no disk and no memory can refuse.
bool isWakeUp(const seccomp_notif& question)
{
    if (question.data.nr != SYS_write && question.data.nr != SYS_read)
        return false;
    std::array<char, 64> target{};
    const std::string link = "/proc/" + std::to_string(question.pid) + "/fd/" + std::to_string(question.data.args[0]);
    return readlink(link.c_str(), target.data(), target.size() - 1) > 0 &&
           std::string(target.data()) == "anon_inode:[eventfd]";
}

/// Answers what the kernel asks.
class Judge final {
public:
    Judge(int descriptor, std::string program, int errnoValue, unsigned long first, unsigned long last)
        : descriptor_(descriptor), program_(std::move(program)), errno_(errnoValue), first_(first), last_(last)
    {}

    void judgeOne()
    {
        seccomp_notif question{};
        if (ioctl(descriptor_, SECCOMP_IOCTL_NOTIF_RECV, &question) != 0)
            return;
        seccomp_notif_resp answer{};
        answer.id = question.id;
        answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        if (runs(question.pid, program_) && !isWakeUp(question)) {
            ++count_;
            if (count_ >= first_ && count_ <= last_) {
                answer.flags = 0;
                answer.error = -errno_;
            }
        }
        // Fails where the process has gone meanwhile.
        ioctl(descriptor_, SECCOMP_IOCTL_NOTIF_SEND, &answer);
    }

    unsigned long count() const { return count_; }

private:
    const int descriptor_;
    const std::string program_;
    const int errno_;
    const unsigned long first_;
    const unsigned long last_;
    unsigned long count_ = 0;
};

/// @return the exit status of the command
int judgeUntilEnd(Judge& judge, int descriptor, pid_t command)
{
    int status = 0;
    bool hasEnded = false;
    auto deadline = std::chrono::steady_clock::time_point::max();
    for (;;) {
        pollfd wait{descriptor, POLLIN, 0};
        poll(&wait, 1, 5);
        if (wait.revents & POLLIN)
            judge.judgeOne();
        if (!hasEnded && waitpid(command, &status, WNOHANG) == command) {
            hasEnded = true;
            // What it has started and left gets some time.
            deadline = std::chrono::steady_clock::now() + 3s;
        }
        if (hasEnded && ((wait.revents & POLLHUP) || std::chrono::steady_clock::now() > deadline))
            return status;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 8 || !kCalls.contains(argv[2])) {
        std::fputs("usage: refused_calls PROGRAM CALL ERRNO FIRST LAST REPORT COMMAND...\n", stderr);
        return 125;
    }
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0)
        leave("socketpair");
    const pid_t command = fork();
    if (command == 0) {
        const int listener = watchCalls(kCalls.at(argv[2]));
        if (listener < 0)
            leave("seccomp");
        sendDescriptor(sockets[1], listener);
        close(listener);
        execvp(argv[7], argv + 7);
        leave(argv[7]);
    }
    close(sockets[1]);
    const int listener = receiveDescriptor(sockets[0]);
    if (command < 0 || listener < 0)
        leave("no process to watch");
    Judge judge(listener, argv[1], std::atoi(argv[3]), std::strtoul(argv[4], nullptr, 10),
                std::strtoul(argv[5], nullptr, 10));
    const int status = judgeUntilEnd(judge, listener, command);
    std::ofstream(argv[6]) << judge.count() << "\n";
    if (WIFSIGNALED(status)) {
        std::signal(WTERMSIG(status), SIG_DFL);
        raise(WTERMSIG(status));
    }
    return WEXITSTATUS(status);
}
