#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace stillora::window {

/// Keeps a function connected to a signal for as long as it lives; it may outlive the signal.
class [[nodiscard]] Connection final {
public:
    Connection() = default;
    explicit Connection(std::shared_ptr<void> slot) : slot_(std::move(slot)) {}

    void disconnect() { slot_.reset(); }
    bool isConnected() const { return slot_ != nullptr; }

private:
    std::shared_ptr<void> slot_;
};

/// Tells whoever is connected that something has happened. One thread. What is called may connect and disconnect.
template <typename... Values>
class Signal final {
public:
    using Function = std::function<void(Values...)>;

    Signal() = default;
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    Connection connect(Function function)
    {
        std::erase_if(slots_, [](const auto& slot) { return slot.expired(); });
        auto slot = std::make_shared<Function>(std::move(function));
        slots_.push_back(slot);
        return Connection(std::move(slot));
    }

    void emit(Values... values) const
    {
        const auto slots = slots_;
        for (const auto& each : slots)
            if (const auto slot = each.lock())
                (*slot)(values...);
    }

private:
    std::vector<std::weak_ptr<Function>> slots_;
};

} // namespace stillora::window
