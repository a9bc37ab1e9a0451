// render_fixture.h - a folder in which the program renders pages, and a look at what it has made.
// Linux only.
#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/host/program.h"

namespace pennywort::host {

// Blue, green, red, alpha.
using colour = std::vector<int>;

inline const colour k_white{255, 255, 255, 255};
inline const colour k_black{0, 0, 0, 255};

// White where what the page says is true, black where it is not.
inline std::string truth_page(const std::string& expression) {
    return "<!doctype html><style>body{margin:0}</style><script>"
           "document.documentElement.style.background = (" +
           expression + ") ? '#fff' : '#000'</script>";
}

class RenderFixture : public testing::Test {
protected:
    void expect_failure(const std::string& script, const std::string& part) {
        const auto run = folder.run(script);
        EXPECT_EQ(run.status, 1) << run.errors;
        EXPECT_NE(run.errors.find(part), std::string::npos) << run.errors;
    }
    void expect_fine(const std::string& script) {
        const auto run = folder.run(script);
        EXPECT_EQ(run.status, 0) << run.errors;
    }
    // Of a PNG file.
    colour pixel(const std::string& name, int x, int y) const {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        const std::string path = folder.path(name);
        EXPECT_TRUE(png_image_begin_read_from_file(&image, path.c_str())) << image.message;
        image.format = PNG_FORMAT_BGRA;
        std::vector<std::uint8_t> all(PNG_IMAGE_SIZE(image));
        EXPECT_TRUE(png_image_finish_read(&image, nullptr, all.data(), 0, nullptr));
        const bool is_inside =
            x < static_cast<int>(image.width) && y < static_cast<int>(image.height);
        EXPECT_TRUE(is_inside) << image.width << "x" << image.height;
        if (!is_inside) return {};
        const auto at = all.begin() + (y * static_cast<int>(image.width) + x) * 4;
        return {at, at + 4};
    }
    // "640x480" of a PNG file.
    std::string size_of(const std::string& name) const {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        const std::string path = folder.path(name);
        EXPECT_TRUE(png_image_begin_read_from_file(&image, path.c_str())) << image.message;
        const auto size = std::to_string(image.width) + "x" + std::to_string(image.height);
        png_image_free(&image);
        return size;
    }
    // Sets up a site: the body of its do_GET, in Python, which calls self.reply(status, type,
    // body).
    void write_site(const std::string& do_get) {
        folder.write("server.py", R"py(
import http.server, threading, time, urllib.parse
class handler(http.server.BaseHTTPRequestHandler):
    protocol_version = 'HTTP/1.1'
    def log_message(self, *a): pass
    def reply(self, status, kind, body):
        self.send_response(status)
        self.send_header('Content-Type', kind)
        self.send_header('Access-Control-Allow-Origin', '*')
        self.send_header('Content-Length', str(len(body)))
        self.end_headers()
        self.wfile.write(body)
    def do_GET(self):)py" + do_get + R"py(
server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), handler)
print(server.server_port, flush=True)
server.serve_forever()
)py");
    }
    // What the script does beside that site: $at is its address, $port the port.
    program_run served(const std::string& script) const {
        return folder.run(
            "rm -f port; python3 server.py > port & server=$!\n"
            "trap 'kill $server' EXIT\n"
            "until [ -s port ]; do sleep 0.05; done\n"
            "port=$(cat port); at=http://127.0.0.1:$port\n" +
            script);
    }
    static std::string value_of(const std::string& json, const std::string& name) {
        const auto at = json.find("\"" + name + "\":");
        if (at == std::string::npos) return "missing";
        const auto begin = at + name.size() + 3;
        return json.substr(begin, json.find_first_of(",}", begin) - begin);
    }

    program_folder folder;
};

// Changes with every frame, from the first on.
class MovingPage : public RenderFixture {
protected:
    MovingPage() {
        folder.write("moving.html",
                     "<!doctype html><style>body{margin:0;background:#204060}</style><script>"
                     "let n=0;(function next(){document.body&&(document.body.textContent=++n);"
                     "requestAnimationFrame(next)})()</script>");
    }
};

}  // namespace pennywort::host
