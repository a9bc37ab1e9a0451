// curl_lines.cpp - see the header for the contract.
#include "httpclient/curl_lines.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "core/limits.h"

namespace pennywort::httpclient::curl_lines {

namespace {

using clock = std::chrono::steady_clock;

struct idle_lines {
    std::mutex mutex;
    std::vector<std::unique_ptr<curl_line>> lines;  // the one given back last stands last
};

idle_lines& idle() {
    // Never ended: a session that is a static object itself may end later than this would.
    static idle_lines& all = *new idle_lines;
    return all;
}

// libcurl's own set-up is not safe against another thread in it.
bool is_set_up() {
    static const bool is_fine = ::curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return is_fine;
}

std::unique_ptr<curl_line> make() {
    if (!is_set_up()) return nullptr;
    auto line = std::make_unique<curl_line>();
    line->multi.reset(::curl_multi_init());
    line->easy.reset(::curl_easy_init());
    return line->multi != nullptr && line->easy != nullptr ? std::move(line) : nullptr;
}

std::unique_ptr<curl_line> take(std::vector<std::unique_ptr<curl_line>>& lines,
                                const std::string& destination) {
    const auto found = std::find_if(lines.rbegin(), lines.rend(), [&](const auto& line) {
        return line->destination == destination;
    });
    if (found == lines.rend()) return nullptr;
    auto line = std::move(*found);
    lines.erase(std::next(found).base());
    return line;
}

// What has been idle too long, and the oldest of too many; closed by the caller, who holds no lock
// then: closing a connection over TLS says goodbye to its peer.
std::vector<std::unique_ptr<curl_line>> take_surplus(
    std::vector<std::unique_ptr<curl_line>>& lines) {
    const auto oldest = clock::now() - std::chrono::seconds(k_idle_connection_seconds);
    std::size_t count =
        lines.size() > k_max_idle_connections ? lines.size() - k_max_idle_connections : 0;
    while (count < lines.size() && lines[count]->idle_since < oldest) ++count;
    // The memory first: a line that has been moved out must not get lost on its way.
    std::vector<std::unique_ptr<curl_line>> surplus;
    surplus.reserve(count);
    const auto end = lines.begin() + static_cast<std::ptrdiff_t>(count);
    std::move(lines.begin(), end, std::back_inserter(surplus));
    lines.erase(lines.begin(), end);
    return surplus;
}

}  // namespace

std::unique_ptr<curl_line> borrow(const std::string& destination) {
    {
        const std::lock_guard lock(idle().mutex);
        if (auto line = take(idle().lines, destination)) return line;
    }
    auto line = make();
    if (line != nullptr) line->destination = destination;
    return line;
}

void give_back(std::unique_ptr<curl_line> line) {
    std::vector<std::unique_ptr<curl_line>> surplus;
    const std::lock_guard lock(idle().mutex);
    line->idle_since = clock::now();
    idle().lines.push_back(std::move(line));
    surplus = take_surplus(idle().lines);
}

void close_idle() {
    std::vector<std::unique_ptr<curl_line>> closing;
    const std::lock_guard lock(idle().mutex);
    closing.swap(idle().lines);
}

}  // namespace pennywort::httpclient::curl_lines
