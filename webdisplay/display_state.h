// display_state.h - what a display keeps beside the fields that its class lays open.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "loam/critical.h"
#include "loam/returned_mutex.h"
#include "webdisplay/inspector_calls.h"
#include "webdisplay/page_calls.h"
#include "webdisplay/page_loads.h"
#include "webdisplay/sound_port.h"
#include "webdisplay/tick_ledger.h"

class cBrowserInspectorHandler;

namespace pennywort::webdisplay {

inline constexpr std::uint32_t k_opaque = 0xFF000000;

struct display_state {
    explicit display_state(load_policy policy) : loads(policy) {}

    // Hosts do call LoadUrl and GetUrlForLastPageLoaded from threads of their own.
    loam::returned_mutex url_lock;
    loam::returned_mutex size_lock;
    loam::returned_mutex loads_lock;
    page_loads loads;
    tick_ledger ticks;
    bool is_on_host_clock = false;
    bool is_on_page_clock = false;
    double page_day = 0;
    std::string page_start;
    std::string frame_fault;              // under loads_lock
    std::uint32_t background = k_opaque;  // of an opaque page, with its alpha
    double scale = 1;
    bool has_inspector = false;
    inspector_calls calls;
    // Guards the one below while it is called, as the locks of the other receivers do.
    std::unique_ptr<zCritical> inspector_receiver_lock;
    cBrowserInspectorHandler* inspector_receiver = nullptr;
    bool refuses_downloads = false;
    page_terms terms;
    std::int32_t max_popups = 0;
    bool merges_widgets = false;
    std::atomic<bool> widget_is_opening{false};
    bool is_muted = false;
    // Only of a display whose sound the host wants. Shared with the client, whose packets come on a
    // thread that must not wait for a lock held while the host's code runs.
    std::shared_ptr<sound_port> sound;
    std::atomic<std::uint64_t> dropped_calls{0};
    // Whether anybody is to be asked about requests. The runtime asks on its IO thread, which must
    // not wait for a lock that is held while the host's code runs.
    const std::shared_ptr<std::atomic<bool>> has_page_receiver =
        std::make_shared<std::atomic<bool>>(false);
};

}  // namespace pennywort::webdisplay
