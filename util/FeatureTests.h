#pragma once

#include <atomic>

namespace platform {
class ClassRegistry;
}

/// Tells what the running system can do, by the classes that it has. Each question is asked of the registry once, and
/// its answer kept. Any thread: who asks at the same time gets the same answer.
class FeatureTests final {
public:
    /// @param registry  has to outlive the tests
    explicit FeatureTests(const platform::ClassRegistry& registry) : registry_(registry) {}
    FeatureTests(const FeatureTests&) = delete;
    FeatureTests& operator=(const FeatureTests&) = delete;

    bool isAtLeastMavericks();
    bool isAtLeastYosemite();
    bool isAtLeastElCapitan();
    bool supportsTouchBar();

private:
    /// -1 as long as it is not known, then 0 or 1.
    using CachedAnswer = std::atomic<signed char>;

    bool hasClass(CachedAnswer& answer, const char* name) const;

    const platform::ClassRegistry& registry_;
    CachedAnswer isAtLeastMavericks_{-1};
    CachedAnswer isAtLeastYosemite_{-1};
    CachedAnswer isAtLeastElCapitan_{-1};
    CachedAnswer supportsTouchBar_{-1};
};
