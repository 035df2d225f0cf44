#include "platform/sandbox/CallFilter.h"

#include "platform/foundation/Handle.h"
#include "platform/sandbox/Sanitizers.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <seccomp.h>
#include <set>
#include <span>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform::CallFilter {

namespace {

using Filter = Handle<void, seccomp_release>;

/// Harmless whatever their arguments are: each works on what the process has, or on files, which are guarded otherwise.
constexpr auto kAllowed = std::to_array<const char*>(
    {// memory
     "brk", "madvise", "membarrier", "mincore", "mlock", "mlock2", "mremap", "msync", "munlock", "munmap",
     // files
     "_llseek", "access", "chdir", "chmod", "chown", "chown32", "close", "close_range", "copy_file_range", "creat",
     "dup", "dup2", "dup3", "faccessat", "faccessat2", "fadvise64", "fadvise64_64", "fallocate", "fchdir", "fchmod",
     "fchmodat", "fchmodat2", "fchown", "fchown32", "fchownat", "fcntl", "fcntl64", "fdatasync", "fgetxattr",
     "flistxattr", "flock", "fremovexattr", "fsetxattr", "fstat", "fstat64", "fstatat64", "fstatfs", "fstatfs64",
     "fsync", "ftruncate", "ftruncate64", "futimesat", "getcwd", "getdents", "getdents64", "getxattr",
     "inotify_add_watch", "inotify_init", "inotify_init1", "inotify_rm_watch", "lchown", "lchown32", "lgetxattr",
     "link", "linkat", "listxattr", "llistxattr", "lremovexattr", "lseek", "lsetxattr", "lstat", "lstat64", "mkdir",
     "mkdirat", "newfstatat", "open", "openat", "openat2", "pread64", "preadv", "preadv2", "pwrite64", "pwritev",
     "pwritev2", "read", "readahead", "readlink", "readlinkat", "readv", "removexattr", "rename", "renameat",
     "renameat2", "rmdir", "sendfile", "sendfile64", "setxattr", "splice", "stat", "stat64", "statfs", "statfs64",
     "statx", "symlink", "symlinkat", "sync_file_range", "sync_file_range2", "syncfs", "truncate", "truncate64",
     "umask", "unlink", "unlinkat", "utime", "utimensat", "utimensat_time64", "utimes", "write", "writev",
     // waiting
     "_newselect", "clock_nanosleep", "clock_nanosleep_time64", "epoll_create", "epoll_create1", "epoll_ctl",
     "epoll_pwait", "epoll_pwait2", "epoll_wait", "eventfd", "eventfd2", "nanosleep", "pause", "pipe", "pipe2", "poll",
     "ppoll", "ppoll_time64", "pselect6", "pselect6_time64", "select", "timerfd_create", "timerfd_gettime",
     "timerfd_settime",
     // time
     "alarm", "clock_getres", "clock_getres_time64", "clock_gettime", "clock_gettime64", "getitimer", "gettimeofday",
     "setitimer", "time", "timer_create", "timer_delete", "timer_getoverrun", "timer_gettime", "timer_settime", "times",
     // threads
     "arch_prctl", "exit", "exit_group", "futex", "futex_time64", "futex_waitv", "get_robust_list", "get_thread_area",
     "getcpu", "getpriority", "gettid", "ioprio_get", "ioprio_set", "restart_syscall", "riscv_flush_icache", "rseq",
     "sched_get_priority_max", "sched_get_priority_min", "sched_getaffinity", "sched_getattr", "sched_getparam",
     "sched_getscheduler", "sched_rr_get_interval", "sched_setaffinity", "sched_setattr", "sched_yield",
     "set_robust_list", "set_thread_area", "set_tid_address", "set_tls", "setpriority", "cacheflush",
     // signals
     "rt_sigaction", "rt_sigpending", "rt_sigprocmask", "rt_sigreturn", "rt_sigsuspend", "rt_sigtimedwait",
     "rt_sigtimedwait_time64", "sigaction", "sigaltstack", "signalfd", "signalfd4", "sigprocmask", "sigreturn",
     // what the process is, and where
     "capget", "getegid", "getegid32", "geteuid", "geteuid32", "getgid", "getgid32", "getgroups", "getgroups32",
     "getpgid", "getpgrp", "getpid", "getppid", "getrandom", "getresgid", "getresgid32", "getresuid", "getresuid32",
     "getrlimit", "getrusage", "getsid", "getuid", "getuid32", "sysinfo", "ugetrlimit", "uname", "wait4", "waitid",
     "waitpid",
     // sockets that are there
     "accept", "accept4", "getpeername", "getsockname", "getsockopt", "recv", "recvfrom", "recvmmsg", "recvmmsg_time64",
     "recvmsg", "send", "sendmmsg", "sendmsg", "sendto", "setsockopt", "shutdown"});

/// Refused as what is not permitted. All others that are not allowed fail as what this kernel does not have: libraries
/// that try something new then go on as they do on an older one.
constexpr auto kForbidden = std::to_array<const char*>(
    {// programs and processes
     "execve", "execveat", "fork", "kill", "pidfd_getfd", "pidfd_send_signal", "prlimit64", "process_madvise",
     "process_vm_readv", "process_vm_writev", "ptrace", "rt_sigqueueinfo", "rt_tgsigqueueinfo", "setpgid", "setsid",
     "tgkill", "tkill", "vfork",
     // sockets
     "bind", "connect", "listen", "socket", "socketpair",
     // the system
     "add_key", "bpf", "chroot", "delete_module", "finit_module", "init_module", "io_uring_enter", "io_uring_register",
     "io_uring_setup", "keyctl", "mknod", "mknodat", "mount", "open_by_handle_at", "perf_event_open", "pivot_root",
     "request_key", "setns", "syslog", "umount2", "unshare", "userfaultfd"});

/// Questions and settings of a process about itself.
constexpr auto kProcessControls = std::to_array<uint64_t>(
    {PR_GET_NAME, PR_SET_NAME, PR_GET_DUMPABLE, PR_SET_DUMPABLE, PR_GET_NO_NEW_PRIVS, PR_SET_NO_NEW_PRIVS,
     PR_GET_SECCOMP, PR_CAPBSET_READ, PR_GET_PDEATHSIG, PR_SET_PDEATHSIG, PR_GET_TIMERSLACK, PR_SET_TIMERSLACK,
     // Names of memory, where the C library gives it some.
     0x53564d41});

/// Of files: what a terminal is asked by, sharing of blocks between copies, and where in a file there is something.
constexpr auto kFileControls = std::to_array<uint64_t>(
    {TCGETS, TIOCGWINSZ, FIONREAD, FIONBIO, FIOCLEX, FIONCLEX, FICLONE, FICLONERANGE, FS_IOC_GETFLAGS, FS_IOC_FIEMAP});

/// What the sanitizers look at a process with, from a child of its own; and they set up how they are looked at.
constexpr auto kForSanitizers = std::to_array<const char*>(
    {"clone", "kill", "personality", "prctl", "prlimit64", "process_vm_readv", "ptrace", "tgkill", "tkill"});

/// Rules are added one after the other until one fails. What is said first of a call holds.
class Rules final {
public:
    explicit Rules(scmp_filter_ctx filter) : filter_(filter) {}

    void allow(const char* name) { addWhole(SCMP_ACT_ALLOW, name); }
    void forbid(const char* name) { addWhole(kRefused, name); }

    /// Allowed where an argument is one of some values; else it fails as what this kernel does not have.
    void allowFor(const char* name, unsigned argument, std::span<const uint64_t> values)
    {
        const int number = numberOf(name);
        for (const uint64_t value : values)
            add(SCMP_ACT_ALLOW, number, {argument, SCMP_CMP_EQ, value, 0});
    }

    /// Allowed where an argument is this, else forbidden.
    void allowOnlyFor(const char* name, unsigned argument, uint64_t value)
    {
        const int number = numberOf(name);
        add(SCMP_ACT_ALLOW, number, {argument, SCMP_CMP_EQ, value, 0});
        add(kRefused, number, {argument, SCMP_CMP_NE, value, 0});
    }

    /// Allowed where an argument has this bit, else forbidden.
    void allowOnlyWith(const char* name, unsigned argument, uint64_t bit)
    {
        const int number = numberOf(name);
        add(SCMP_ACT_ALLOW, number, {argument, SCMP_CMP_MASKED_EQ, bit, bit});
        add(kRefused, number, {argument, SCMP_CMP_MASKED_EQ, bit, 0});
    }

    /// Allowed where an argument has not this bit, else forbidden.
    void allowWithout(const char* name, unsigned argument, uint64_t bit)
    {
        const int number = numberOf(name);
        add(SCMP_ACT_ALLOW, number, {argument, SCMP_CMP_MASKED_EQ, bit, 0});
        add(kRefused, number, {argument, SCMP_CMP_MASKED_EQ, bit, bit});
    }

    /// Allowed where an argument lacks one of two bits, else forbidden.
    void allowWithoutBoth(const char* name, unsigned argument, uint64_t first, uint64_t second)
    {
        const int number = numberOf(name);
        for (const uint64_t bits : {uint64_t{0}, first, second})
            add(SCMP_ACT_ALLOW, number, {argument, SCMP_CMP_MASKED_EQ, first | second, bits});
        add(kRefused, number, {argument, SCMP_CMP_MASKED_EQ, first | second, first | second});
    }

    /// 0 where all could be added, or an `errno` value.
    int failure() const { return failure_; }

private:
    static constexpr uint32_t kRefused = SCMP_ACT_ERRNO(EPERM);
    static constexpr int kNone = -1;

    /// @return none for a call that other processors have, that this library does not know yet, or of which something
    /// has
    ///         been said
    int numberOf(const char* name)
    {
        const int number = seccomp_syscall_resolve_name(name);
        return number >= 0 && named_.insert(number).second ? number : kNone;
    }

    void addWhole(uint32_t action, const char* name)
    {
        if (const int number = numberOf(name); number != kNone && failure_ == 0)
            failure_ = -seccomp_rule_add_array(filter_, action, number, 0, nullptr);
    }

    void add(uint32_t action, int number, const scmp_arg_cmp& condition)
    {
        if (number != kNone && failure_ == 0)
            failure_ = -seccomp_rule_add_array(filter_, action, number, 1, &condition);
    }

    const scmp_filter_ctx filter_;
    std::set<int> named_;
    int failure_ = 0;
};

int addRules(scmp_filter_ctx filter, SandboxSockets sockets)
{
    Rules rules(filter);
    if (kBuiltWithSanitizer)
        for (const char* name : kForSanitizers)
            rules.allow(name);
    for (const char* name : kAllowed)
        rules.allow(name);
    // Code comes from files. Memory that was written is never run: not at once and not later.
    for (const char* name : {"mmap", "mmap2"})
        rules.allowWithoutBoth(name, 2, PROT_WRITE, PROT_EXEC);
    rules.allowWithout("mprotect", 2, PROT_EXEC);
    // Threads, no processes. What "clone3" is asked for cannot be looked at: the C library then takes the older call.
    rules.allowOnlyWith("clone", 0, CLONE_THREAD);
    rules.allowFor("prctl", 0, kProcessControls);
    rules.allowFor("ioctl", 1, kFileControls);
    // Signals and limits of its own.
    rules.allowOnlyFor("kill", 0, static_cast<uint64_t>(getpid()));
    rules.allowOnlyFor("tgkill", 0, static_cast<uint64_t>(getpid()));
    rules.allowOnlyFor("prlimit64", 0, 0);
    if (sockets == SandboxSockets::ThisMachine) {
        rules.allowOnlyFor("socket", 0, AF_UNIX);
        rules.allow("connect");
    }
    for (const char* name : kForbidden)
        rules.forbid(name);
    return rules.failure();
}

} // namespace

bool isPossible()
{
    const uint32_t action = SECCOMP_RET_ERRNO;
    return syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
}

int install(SandboxSockets sockets)
{
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(ENOSYS)));
    if (!filter)
        return ENOMEM;
    // Calls of other kinds of programs, which pass by numbers of other meaning, nobody makes by mistake.
    if (const int failure = -seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS);
        failure != 0)
        return failure;
    if (const int failure = addRules(filter.get(), sockets); failure != 0)
        return failure;
    // Found by halving, as there are many.
    if (const int failure = -seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2); failure != 0)
        return failure;
    return -seccomp_load(filter.get());
}

} // namespace platform::CallFilter
