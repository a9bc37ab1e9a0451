// loam/ended_loop.h - the loop of a thread whose own is gone, or cannot be made.
#pragma once

#include "loam/loop_state.h"

namespace loam {

// What a thread has in the last moments of its life, when its own loop is gone; and for the moment
// where the system has nothing left to make one of.
class ended_loop final : public loop_state {
public:
    static std::shared_ptr<zMessageLoop> make_handle() {
        return handle_of(std::make_shared<ended_loop>());
    }

    void run() override {}
    bool run_once(std::uint32_t) override { return false; }
    zStatus post(std::function<void()>) override { return -1; }
    void request_quit() override {}
};

}  // namespace loam
