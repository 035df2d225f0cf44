#include "platform/system/NSClassRegistry.h"

namespace platform {

NSClassRegistry& NSClassRegistry::processRegistry()
{
    static NSClassRegistry registry;
    return registry;
}

NSClassRegistry::NSClassRegistry()
{
    registerClass("NSProcessInfo",
                  {"processorCount", "processName",
                   "setProcessName:", "setAutomaticTerminationSupportEnabled:", "enableSuddenTermination",
                   "disableSuddenTermination", "enableAutomaticTermination:", "disableAutomaticTermination:"});
    registerClass("NSWorkspace", {"iconForFile:", "iconForFileType:", "typeOfFile:error:"});
}

void NSClassRegistry::registerClass(const std::string& name, const std::vector<std::string>& selectors)
{
    const LockGuard guard(lock_);
    classes_[name].insert(selectors.begin(), selectors.end());
}

bool NSClassRegistry::hasClass(std::string_view name) const
{
    const LockGuard guard(lock_);
    return classes_.contains(name);
}

bool NSClassRegistry::instancesRespondToSelector(std::string_view className, std::string_view selector) const
{
    const LockGuard guard(lock_);
    const auto known = classes_.find(className);
    return known != classes_.end() && known->second.contains(selector);
}

} // namespace platform
