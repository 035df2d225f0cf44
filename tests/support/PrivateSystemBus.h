#pragma once

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

/// A system bus of the test's own, with or without a login manager that only pretends. While it lives,
/// `DBUS_SYSTEM_BUS_ADDRESS` names it.
class PrivateSystemBus final {
public:
    enum class LoginManager { None, Mocked };

    explicit PrivateSystemBus(LoginManager loginManager)
    {
        const auto address = "unix:path=" + folder_.path("socket");
        std::ofstream(folder_.path("bus.conf"))
            << "<busconfig><type>system</type><listen>" << address
            << "</listen><auth>EXTERNAL</auth><policy context='default'><allow send_destination='*' eavesdrop='true'/>"
               "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>";
        if (const char* old = getenv("DBUS_SYSTEM_BUS_ADDRESS"))
            oldAddress_ = old;
        setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
        start({"/usr/bin/dbus-daemon", "--config-file=" + folder_.path("bus.conf"), "--nofork", "--nopidfile"});
        waitUntil("the bus",
                  [&] { return call("org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer.Ping") == "()"; });
        if (loginManager == LoginManager::Mocked) {
            // The system's own Python has the module, whatever else is first in the path.
            start({"/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"});
            waitUntil("the login manager", [&] { return !inhibitors().empty(); });
        }
    }
    PrivateSystemBus(const PrivateSystemBus&) = delete;
    PrivateSystemBus& operator=(const PrivateSystemBus&) = delete;
    ~PrivateSystemBus()
    {
        for (auto process = processes_.rbegin(); process != processes_.rend(); ++process) {
            kill(*process, SIGKILL);
            waitpid(*process, nullptr, 0);
        }
        if (oldAddress_.empty())
            unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
        else
            setenv("DBUS_SYSTEM_BUS_ADDRESS", oldAddress_.c_str(), 1);
    }

    /// The login manager's list of inhibitors as text, "(@a(ssssuu) [],)" for none; empty if it does not answer.
    std::string inhibitors() const
    {
        return call("org.freedesktop.login1", "/org/freedesktop/login1",
                    "org.freedesktop.login1.Manager.ListInhibitors");
    }

    template <typename Condition>
    static bool waitUntil(const char* what, Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "waited in vain for " << what;
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

private:
    void start(const std::vector<std::string>& arguments)
    {
        std::vector<char*> pointers;
        for (const auto& argument : arguments)
            pointers.push_back(const_cast<char*>(argument.c_str()));
        pointers.push_back(nullptr);
        pid_t process = 0;
        ASSERT_EQ(posix_spawn(&process, pointers[0], nullptr, nullptr, pointers.data(), environ), 0) << arguments[0];
        processes_.push_back(process);
    }

    static std::string call(const std::string& destination, const std::string& path, const std::string& method)
    {
        const auto command = "gdbus call --system --timeout 5 --dest " + destination + " --object-path " + path +
                             " --method " + method + " 2>/dev/null";
        std::string output;
        if (FILE* pipe = popen(command.c_str(), "r")) {
            char buffer[1024];
            while (const auto length = fread(buffer, 1, sizeof buffer, pipe))
                output.append(buffer, length);
            pclose(pipe);
        }
        while (!output.empty() && output.back() == '\n')
            output.pop_back();
        return output;
    }

    const TemporaryFolder folder_;
    std::string oldAddress_;
    std::vector<pid_t> processes_;
};
