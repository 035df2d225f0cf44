#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Which classes there are, and what their objects can be asked to do, by name. Capabilities are probed by it, so that
/// no program has to compare version numbers.
class ClassRegistry {
public:
    virtual ~ClassRegistry() = default;

    virtual bool hasClass(std::string_view name) const = 0;
    /// @param selector  an operation with its keywords, "endActivity:"
    /// @return false also for a class that there is not
    virtual bool instancesRespondToSelector(std::string_view className, std::string_view selector) const = 0;
};

/// The classes of this process. The system keeps no such list, so a class is there if it was registered: those of this
/// folder are, and a program or its toolkit registers what it brings along itself, such as a touch bar. Any thread.
class NSClassRegistry final : public ClassRegistry {
public:
    static NSClassRegistry& processRegistry();

    /// Knows this process and its workspace.
    NSClassRegistry();
    ~NSClassRegistry() override;
    NSClassRegistry(const NSClassRegistry&) = delete;
    NSClassRegistry& operator=(const NSClassRegistry&) = delete;

    /// Adds a class, or operations to one that is known. A capability that was asked for before keeps its answer.
    void registerClass(const std::string& name, const std::vector<std::string>& selectors = {});

    bool hasClass(std::string_view name) const override;
    bool instancesRespondToSelector(std::string_view className, std::string_view selector) const override;

private:
    class Classes;

    const std::unique_ptr<Classes> classes_;
};

} // namespace platform
