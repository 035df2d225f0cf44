#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace platform {

/// Quality-of-service classes of dispatch queues, by the platform's numbers. Kept as data.
enum class QOSClass : unsigned {
    Unspecified = 0,
    Utility = 17,
    Default = 21,
    UserInitiated = 25,
    UserInteractive = 33
};

/// Runs blocks on threads of a pool: one after another in order (serial), or as they come (concurrent). The pool grows
/// when its threads block, so that waiting blocks never starve others. Every operation may be called on any thread.
class DispatchQueue {
public:
    enum class Kind { Serial, Concurrent };
    enum class AutoreleaseFrequency { Inherit = 0, WorkItem = 1 };

    struct Attributes {
        Kind kind = Kind::Serial;
        AutoreleaseFrequency autoreleaseFrequency = AutoreleaseFrequency::Inherit;
        QOSClass qosClass = QOSClass::Unspecified;
        int relativePriority = 0;
        /// Added to the scheduling niceness of the threads that run this queue's blocks, 0 to 19. Queues of one
        /// niceness share their threads.
        int niceness = 0;
    };

    static std::shared_ptr<DispatchQueue> create(std::string label, Attributes attributes);
    /// The concurrent queue of default priority.
    static std::shared_ptr<DispatchQueue> global();
    /// The serial queue of the thread that calls `runMain`.
    static std::shared_ptr<DispatchQueue> main();

    virtual ~DispatchQueue() = default;

    /// Blocks run in order of adding; on a serial queue each ends before the next begins.
    virtual void async(std::move_only_function<void()> block) = 0;

    /// Waits until the block has run. Not from a block of this queue if it is serial.
    void sync(const std::function<void()>& block);

    /// Whether the calling thread is running a block of this queue.
    virtual bool isCurrent() const = 0;

    const std::string& label() const { return label_; }
    const Attributes& attributes() const { return attributes_; }

    /// Runs the main queue's blocks on this thread until `stopMain`; blocks that wait then stay for the next call.
    static void runMain();
    /// Makes `runMain` return after the block that runs now. Any thread; also before `runMain`.
    static void stopMain();
    /// Runs the main queue's blocks here until `done` answers true; it is asked after each block, and often while none
    /// waits. For tests, and for the last moments of a process.
    /// @return false if that took longer than `timeoutSeconds`
    static bool runMainUntil(const std::function<bool()>& done, double timeoutSeconds);

protected:
    DispatchQueue(std::string label, Attributes attributes);

private:
    const std::string label_;
    const Attributes attributes_;
};

/// Ends the process with a message unless the calling thread runs a block of `queue`. Checked in debug builds only.
void assertOnQueue(const DispatchQueue& queue);

} // namespace platform
