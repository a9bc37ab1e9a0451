// webdisplay_browser_client_frames.cpp - how large a client's page is, and which of its frames
// reach the display.
#include <algorithm>
#include <cmath>
#include <mutex>
#include <vector>

#include "core/limits.h"
#include "webdisplay/browser_calls.h"
#include "webdisplay/client_owner_use.h"
#include "webdisplay/display_state.h"
#include "webdisplay/frame_looks.h"
#include "webdisplay/message_pump.h"
#include "webdisplay/page_scripts.h"
#include "webdisplay/thread_mark.h"

namespace pennywort::webdisplay {

namespace {

// Whether the calling thread stands in a frame that goes to a host.
thread_local bool t_is_painting = false;

// The display as it is before a page.
std::uint32_t background_of(bool is_transparent, std::uint32_t opaque) {
    return is_transparent ? k_clear_pixel : opaque;
}

// Of the page, so that its picture is none too large.
long largest_side(double scale) {
    return std::max(1L, static_cast<long>(static_cast<double>(k_max_view_side) / scale));
}

// A side of the picture, for one of the page.
long in_pixels(long side, double scale) {
    const double pixels = std::clamp(std::round(static_cast<double>(side) * scale), 1.0,
                                     static_cast<double>(k_max_view_side));
    return static_cast<long>(pixels);
}

// By a task, since the runtime paints within the call.
void paint_view_soon(cef_browser_t* browser) {
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) cef::post_to_ui([host] { host->invalidate(host.get(), PET_VIEW); });
}

}  // namespace

void webdisplay_browser_client::GetViewRect(cef_browser_t*, cef_rect_t& rect) {
    long width = 1;
    long height = 1;
    if (is_alive()) {
        const owner_use owner(*this);
        if (owner) owner->GetSize(width, height);
    }
    // The runtime stops at an empty view, and cannot allocate a picture that is too large.
    const long most = largest_side(m_scale);
    rect = {0, 0, static_cast<int>(std::clamp(width, 1L, most)),
            static_cast<int>(std::clamp(height, 1L, most))};
}

bool webdisplay_browser_client::GetScreenInfo(cef_browser_t* browser, cef_screen_info_t& info) {
    if (m_scale == 1) return false;
    info.device_scale_factor = static_cast<float>(m_scale);
    info.depth = 24;
    info.depth_per_component = 8;
    info.is_monochrome = 0;
    GetViewRect(browser, info.rect);
    info.available_rect = info.rect;
    return true;
}

// A window that the page opened paints here too, since it shares the client; its frames are not the
// display's.
void webdisplay_browser_client::OnPaint(cef_browser_t* browser, cef_paint_element_type_t type,
                                        const void* buffer, int width, int height) {
    if (!is_alive() || is_popup(browser)) return;
    // What comes behind a page's own frame is the next one, which nobody may keep waiting.
    if (!m_driver) message_pump::frame_painted();
    const thread_mark painting(t_is_painting);
    const owner_use owner(*this);
    if (!owner) return;
    if (m_waits_for_calls) return;
    if (type == PET_POPUP && m_merges_widgets) return take_widget(browser, buffer, width, height);
    if (m_driver) {
        if (type == PET_VIEW) return take_page_frame(*owner, buffer, width, height);
        if (m_driver->is_at_frame()) owner->BrowserPainted(buffer, width, height, true);
        return;
    }
    if (owner->m_state->loads.holds_picture() && holds_frame_back(*owner, buffer, width, height)) {
        return;
    }
    if (type == PET_VIEW) return show_frame(*owner, buffer, width, height);
    owner->BrowserPainted(buffer, width, height, true);
}

void webdisplay_browser_client::show_frame(cWebDisplayCEFBrowser& owner, const void* buffer,
                                           int width, int height) {
    const void* const merged = m_widget.laid_over(buffer, width, height);
    owner.BrowserPainted(merged, width, height, false);
}

// Its rectangle comes in points of the page.
void webdisplay_browser_client::OnPopupSize(cef_browser_t* browser, const cef_rect_t& rect) {
    if (!m_merges_widgets || is_popup(browser)) return;
    m_widget.place(static_cast<int>(std::lround(rect.x * m_scale)),
                   static_cast<int>(std::lround(rect.y * m_scale)));
    paint_view_soon(browser);
}

void webdisplay_browser_client::OnPopupShow(cef_browser_t* browser, bool is_shown) {
    if (!m_merges_widgets || is_popup(browser)) return;
    m_widget.show(is_shown);
    widget_changed(browser);
}

void webdisplay_browser_client::take_widget(cef_browser_t* browser, const void* buffer, int width,
                                            int height) {
    m_widget.paint(buffer, width, height);
    widget_changed(browser);
}

void webdisplay_browser_client::widget_changed(cef_browser_t* browser) {
    const owner_use owner(*this);
    if (owner) owner->m_state->widget_is_opening = m_widget.is_opening();
    paint_view_soon(browser);
}

bool webdisplay_browser_client::is_painting() { return t_is_painting; }

bool webdisplay_browser_client::holds_frame_back(cWebDisplayCEFBrowser& owner, const void* buffer,
                                                 int width, int height) {
    const bool has_painted =
        shows_page(static_cast<const std::uint32_t*>(buffer), width, height,
                   background_of(owner.m_transparent, owner.m_state->background));
    const std::lock_guard<std::mutex> guard(owner.m_state->loads_lock);
    return !owner.m_state->loads.admits(has_painted);
}

// A page that is all background looks like one that has not painted yet. It says itself when it
// has, and is at rest then.
bool webdisplay_browser_client::take_paint_report(cef_browser_t* browser,
                                                  const std::string& command) {
    if (command != page_scripts::k_paint_report) return false;
    const owner_use owner(*this);
    if (!owner || !owner->m_state->loads.policy().keep_last_picture) return false;
    {
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        if (!owner->m_state->loads.release_picture()) return true;
    }
    paint_view_soon(browser);
    return true;
}

// What the host shows when there has never been a picture: the display as it is before a page.
void webdisplay_browser_client::paint_background(cWebDisplayCEFBrowser& owner) {
    long width = 0;
    long height = 0;
    owner.GetSize(width, height);
    width = in_pixels(width, m_scale);
    height = in_pixels(height, m_scale);
    const std::vector<std::uint32_t> pixels(
        static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
        background_of(owner.m_transparent, owner.m_state->background));
    owner.BrowserPainted(pixels.data(), width, height, false);
}

}  // namespace pennywort::webdisplay
