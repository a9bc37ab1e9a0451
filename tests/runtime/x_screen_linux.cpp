// x_screen_linux.cpp - see x_screen.h. Xvfb picks its display number itself, so that any number of
// tests run beside each other.
#include "x_screen.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

extern "C" char** environ;

namespace pennywort::runtime_test {

namespace {

constexpr int k_longest_class = 64;

template <class T>
struct freed {
    void operator()(T* reply) const { std::free(reply); }
};
template <class T>
using reply = std::unique_ptr<T, freed<T>>;

xcb_window_t id_of(HWND window) {
    return static_cast<xcb_window_t>(reinterpret_cast<std::uintptr_t>(window));
}
HWND window_of(xcb_window_t id) { return reinterpret_cast<HWND>(std::uintptr_t{id}); }

// Xvfb writes its number and a line end there when it is ready.
std::string read_line(int descriptor) {
    std::string line;
    char byte = 0;
    while (::read(descriptor, &byte, 1) == 1 && byte != '\n') line += byte;
    return line;
}

class xvfb final : public x_screen {
public:
    ~xvfb() override {
        if (m_connection) xcb_disconnect(m_connection);
        if (m_server <= 0) return;
        kill(m_server, SIGKILL);
        waitpid(m_server, nullptr, 0);
    }

    bool start() {
        int ends[2];
        if (pipe(ends) != 0) return false;
        fcntl(ends[0], F_SETFD, FD_CLOEXEC);
        std::string number = std::to_string(ends[1]);
        char name[] = "Xvfb", option[] = "-displayfd", screen[] = "-screen", first[] = "0",
             mode[] = "800x600x24", quiet[] = "-nolisten", protocol[] = "tcp";
        char* arguments[] = {name, option, number.data(), screen, first,
                             mode, quiet,  protocol,      nullptr};
        const int error = posix_spawnp(&m_server, name, nullptr, nullptr, arguments, environ);
        ::close(ends[1]);
        const std::string display = error == 0 ? read_line(ends[0]) : std::string();
        ::close(ends[0]);
        if (display.empty()) return false;
        setenv("DISPLAY", (":" + display).c_str(), 1);
        m_connection = xcb_connect(nullptr, nullptr);
        return xcb_connection_has_error(m_connection) == 0;
    }

    HWND make_window(int width, int height) override {
        const xcb_window_t id = create(screen()->root, width, height);
        xcb_map_window(m_connection, id);
        settle();
        return window_of(id);
    }

    HWND make_child(HWND parent) override {
        const xcb_window_t id = create(id_of(parent), 1, 1);
        settle();
        return window_of(id);
    }

    void destroy_window(HWND window) override {
        xcb_destroy_window(m_connection, id_of(window));
        settle();
    }

    void resize_window(HWND window, int width, int height) override {
        const std::uint32_t values[] = {static_cast<std::uint32_t>(width),
                                        static_cast<std::uint32_t>(height)};
        xcb_configure_window(m_connection, id_of(window),
                             XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values);
        settle();
    }

    std::vector<HWND> children(HWND window) override {
        const reply<xcb_query_tree_reply_t> answer(xcb_query_tree_reply(
            m_connection, xcb_query_tree(m_connection, id_of(window)), nullptr));
        std::vector<HWND> list;
        if (!answer) return list;
        const xcb_window_t* first = xcb_query_tree_children(answer.get());
        for (int i = 0; i < xcb_query_tree_children_length(answer.get()); ++i) {
            list.push_back(window_of(first[i]));
        }
        return list;
    }

    bool size(HWND window, long& width, long& height) override {
        const reply<xcb_get_geometry_reply_t> answer(xcb_get_geometry_reply(
            m_connection, xcb_get_geometry(m_connection, id_of(window)), nullptr));
        if (!answer) return false;
        width = answer->width;
        height = answer->height;
        return true;
    }

    std::int32_t centre_colour(HWND window) override {
        long width = 0;
        long height = 0;
        if (!size(window, width, height)) return -1;
        const reply<xcb_get_image_reply_t> image(
            xcb_get_image_reply(m_connection,
                                xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP,
                                              id_of(window), static_cast<std::int16_t>(width / 2),
                                              static_cast<std::int16_t>(height / 2), 1, 1, ~0u),
                                nullptr));
        if (!image || xcb_get_image_data_length(image.get()) < 4) return -1;
        std::uint32_t colour = 0;
        std::memcpy(&colour, xcb_get_image_data(image.get()), sizeof colour);
        return static_cast<std::int32_t>(colour & 0xFFFFFF);
    }

    std::string class_name(HWND window) override {
        const reply<xcb_get_property_reply_t> answer(xcb_get_property_reply(
            m_connection,
            xcb_get_property(m_connection, 0, id_of(window), XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0,
                             k_longest_class),
            nullptr));
        if (!answer || xcb_get_property_value_length(answer.get()) == 0) return {};
        return static_cast<const char*>(xcb_get_property_value(answer.get()));
    }

private:
    xcb_screen_t* screen() const {
        return xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
    }

    xcb_window_t create(xcb_window_t parent, int width, int height) {
        const xcb_window_t id = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, id, parent, 0, 0,
                          static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen()->root_visual, 0, nullptr);
        return id;
    }

    // The server has done what was asked for when it answers a question.
    void settle() {
        const reply<xcb_get_input_focus_reply_t> answer(
            xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }

    pid_t m_server = 0;
    xcb_connection_t* m_connection = nullptr;
};

}  // namespace

std::unique_ptr<x_screen> x_screen::make() {
    auto screen = std::make_unique<xvfb>();
    return screen->start() ? std::move(screen) : nullptr;
}

}  // namespace pennywort::runtime_test
