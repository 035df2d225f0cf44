#pragma once

#include "window/state/loop/MainLoop.h"

namespace stillora::window {

/// The loop of the toolkit. What is posted waits until the window has drawn what is due.
class GLibMainLoop final : public MainLoop {
public:
    void post(std::function<void()> call) override;
    void postAfter(std::chrono::milliseconds delay, std::function<void()> call) override;
};

} // namespace stillora::window
