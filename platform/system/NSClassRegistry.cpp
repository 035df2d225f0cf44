#include "platform/system/NSClassRegistry.h"

#include "platform/foundation/Lock.h"

#include <functional>
#include <map>
#include <set>

namespace platform {

class NSClassRegistry::Classes final {
public:
    void add(const std::string& name, const std::vector<std::string>& selectors) EXCLUDES(lock_)
    {
        const LockGuard guard(lock_);
        selectors_[name].insert(selectors.begin(), selectors.end());
    }

    bool contains(std::string_view name) EXCLUDES(lock_)
    {
        const LockGuard guard(lock_);
        return selectors_.contains(name);
    }

    bool contains(std::string_view name, std::string_view selector) EXCLUDES(lock_)
    {
        const LockGuard guard(lock_);
        const auto known = selectors_.find(name);
        return known != selectors_.end() && known->second.contains(selector);
    }

private:
    using Selectors = std::set<std::string, std::less<>>;

    Lock lock_;
    /// By class.
    std::map<std::string, Selectors, std::less<>> selectors_ GUARDED_BY(lock_);
};

NSClassRegistry& NSClassRegistry::processRegistry()
{
    static NSClassRegistry registry;
    return registry;
}

NSClassRegistry::NSClassRegistry() : classes_(std::make_unique<Classes>())
{
    registerClass("NSProcessInfo",
                  {"processorCount", "processName",
                   "setProcessName:", "setAutomaticTerminationSupportEnabled:", "enableSuddenTermination",
                   "disableSuddenTermination", "enableAutomaticTermination:", "disableAutomaticTermination:"});
    registerClass("NSWorkspace", {"iconForFile:", "iconForFileType:", "typeOfFile:error:"});
}

NSClassRegistry::~NSClassRegistry() = default;

void NSClassRegistry::registerClass(const std::string& name, const std::vector<std::string>& selectors)
{
    classes_->add(name, selectors);
}

bool NSClassRegistry::hasClass(std::string_view name) const
{
    return classes_->contains(name);
}

bool NSClassRegistry::instancesRespondToSelector(std::string_view className, std::string_view selector) const
{
    return classes_->contains(className, selector);
}

} // namespace platform
