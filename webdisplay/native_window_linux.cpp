// native_window_linux.cpp - Linux half of native_window.h, over X11. Windows half:
// native_window_win.cpp.
//
// XCB and not Xlib: a window that has just gone is only an empty reply there, while Xlib ends the
// process. The library is opened at run time, since most hosts on Linux never show a page in a
// window.
#include "webdisplay/native_window.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

#include "core/limits.h"
#include "loam/library.h"

namespace pennywort::webdisplay::native_window {

namespace {

#define PENNYWORT_XCB_FUNCTIONS(X)   \
    X(xcb_connect)                   \
    X(xcb_connection_has_error)      \
    X(xcb_flush)                     \
    X(xcb_configure_window)          \
    X(xcb_change_property)           \
    X(xcb_get_property)              \
    X(xcb_get_property_reply)        \
    X(xcb_get_property_value)        \
    X(xcb_get_property_value_length) \
    X(xcb_get_geometry)              \
    X(xcb_get_geometry_reply)        \
    X(xcb_query_tree)                \
    X(xcb_query_tree_reply)

constexpr std::string_view k_browser_class = "CefBrowserWindow";

// What malloc gave, as the replies of XCB.
struct freed {
    void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using reply = std::unique_ptr<T, freed>;

struct x_server {
#define PENNYWORT_XCB_MEMBER(name) decltype(&::name) name = nullptr;
    PENNYWORT_XCB_FUNCTIONS(PENNYWORT_XCB_MEMBER)
#undef PENNYWORT_XCB_MEMBER
    xcb_connection_t* connection = nullptr;

    bool load() {
        std::unique_ptr<zLibrary> library(zLibrary::Factory());
        if (!library || library->Load("libxcb.so.1") != 0) return false;
#define PENNYWORT_XCB_BIND(name)                                        \
    name = reinterpret_cast<decltype(&::name)>(library->Symbol(#name)); \
    if (name == nullptr) return false;
        PENNYWORT_XCB_FUNCTIONS(PENNYWORT_XCB_BIND)
#undef PENNYWORT_XCB_BIND
        library->Keep();
        return true;
    }

    bool is_usable() const {
        return connection != nullptr && xcb_connection_has_error(connection) == 0;
    }
};

// One connection for the process, made when a window is first asked about. It is never closed: it
// may be in use on another thread while the process ends.
x_server& server() {
    static x_server* the_server = [] {
        auto* made = new x_server;
        if (made->load()) made->connection = made->xcb_connect(nullptr, nullptr);
        return made;
    }();
    return *the_server;
}

xcb_window_t id_of(HWND window) {
    return static_cast<xcb_window_t>(reinterpret_cast<std::uintptr_t>(window));
}

reply<xcb_get_geometry_reply_t> geometry(x_server& x, xcb_window_t window) {
    const auto cookie = x.xcb_get_geometry(x.connection, window);
    xcb_generic_error_t* error = nullptr;
    reply<xcb_get_geometry_reply_t> found(x.xcb_get_geometry_reply(x.connection, cookie, &error));
    std::free(error);
    return found;
}

}  // namespace

void fill_child(cef_window_info_t& info, HWND parent, int width, int height) {
    info.parent_window = id_of(parent);
    info.bounds = cef_rect_t{0, 0, width, height};
}

// The runtime gives its X windows no class. WM_CLASS holds two texts, each ended by a NUL.
void mark_browser(cef_window_handle_t window) {
    x_server& x = server();
    if (!x.is_usable() || window == 0) return;
    std::string text(k_browser_class);
    text += '\0';
    text += text;
    x.xcb_change_property(x.connection, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window),
                          XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                          static_cast<std::uint32_t>(text.size()), text.data());
    x.xcb_flush(x.connection);
}

void resize(cef_window_handle_t window, long width, long height) {
    x_server& x = server();
    if (!x.is_usable() || window == 0) return;
    // X knows no window without an extent.
    const std::uint32_t values[] = {0, 0, static_cast<std::uint32_t>(std::max(width, 1L)),
                                    static_cast<std::uint32_t>(std::max(height, 1L))};
    x.xcb_configure_window(x.connection, static_cast<xcb_window_t>(window),
                           XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                               XCB_CONFIG_WINDOW_HEIGHT,
                           values);
    x.xcb_flush(x.connection);
}

bool client_size(HWND window, long& width, long& height) {
    x_server& x = server();
    if (!x.is_usable()) return false;
    const auto found = geometry(x, id_of(window));
    if (found == nullptr) return false;
    width = found->width;
    height = found->height;
    return true;
}

bool exists(cef_window_handle_t window) {
    x_server& x = server();
    // Without a server there is nobody to say that it has gone.
    return !x.is_usable() || geometry(x, static_cast<xcb_window_t>(window)) != nullptr;
}

// The runtime on X11 does not notice that its window was destroyed.
bool browser_goes_with_its_window() noexcept { return false; }

void validate(HWND) {}  // X repaints nothing on its own

std::string class_name(HWND window) {
    x_server& x = server();
    if (!x.is_usable() || window == nullptr) return {};
    const auto cookie = x.xcb_get_property(x.connection, 0, id_of(window), XCB_ATOM_WM_CLASS,
                                           XCB_ATOM_STRING, 0, k_max_window_class);
    xcb_generic_error_t* error = nullptr;
    const reply<xcb_get_property_reply_t> found(
        x.xcb_get_property_reply(x.connection, cookie, &error));
    std::free(error);
    if (found == nullptr) return {};
    const auto* text = static_cast<const char*>(x.xcb_get_property_value(found.get()));
    const std::string_view both(
        text, static_cast<std::size_t>(x.xcb_get_property_value_length(found.get())));
    return std::string(both.substr(0, both.find('\0')).substr(0, k_max_window_class));
}

HWND parent(HWND window) {
    x_server& x = server();
    if (!x.is_usable() || window == nullptr) return nullptr;
    const auto cookie = x.xcb_query_tree(x.connection, id_of(window));
    xcb_generic_error_t* error = nullptr;
    const reply<xcb_query_tree_reply_t> found(x.xcb_query_tree_reply(x.connection, cookie, &error));
    std::free(error);
    return found != nullptr ? reinterpret_cast<HWND>(static_cast<std::uintptr_t>(found->parent))
                            : nullptr;
}

}  // namespace pennywort::webdisplay::native_window
