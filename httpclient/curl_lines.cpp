// curl_lines.cpp - see the header for the contract.
#include "httpclient/curl_lines.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <utility>

#include "core/limits.h"

namespace pennywort::httpclient {

bool curl_header_list::add(const std::string& line) {
    curl_slist* const longer = ::curl_slist_append(m_first, line.c_str());
    if (longer == nullptr) return false;
    m_first = longer;
    return true;
}

namespace curl_lines {

namespace {

using clock = std::chrono::steady_clock;

constexpr std::size_t k_cache_line = 64;

enum class place_state { empty, idle, taken };

// Where one idle line stands, apart from the others in the processor's cache. Whoever has made it
// "taken" has it for itself until it says what it is from then on. No lock for all of them: a
// thread that is put to sleep with it would stop the requests of all others.
struct alignas(k_cache_line) place {
    std::atomic<place_state> state{place_state::empty};
    // Of the line's destination, so that a line for another one need not be taken to see it.
    std::atomic<std::size_t> key{0};
    std::atomic<clock::rep> idle_since{0};
    std::unique_ptr<curl_line> line;

    bool take(place_state from) {
        return state.load(std::memory_order_relaxed) == from &&
               state.compare_exchange_strong(from, place_state::taken, std::memory_order_acquire,
                                             std::memory_order_relaxed);
    }
    void leave(place_state as) { state.store(as, std::memory_order_release); }
    void put(std::unique_ptr<curl_line> given, clock::rep now) {
        line = std::move(given);
        key = std::hash<std::string>()(line->destination);
        idle_since = now;
        leave(place_state::idle);
    }
    // The caller has taken it.
    std::unique_ptr<curl_line> empty() {
        auto left = std::move(line);
        leave(place_state::empty);
        return left;
    }
};

using place_array = std::array<place, k_max_idle_connections>;

place_array& places() {
    // Never ended: a session that is a static object itself may end later than this would.
    static place_array& all = *new place_array;
    return all;
}

// The place where this thread's line stood last: most threads ask for one and the same.
thread_local std::size_t my_place = 0;

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
    const bool is_whole = line->url != nullptr && line->multi != nullptr && line->easy != nullptr;
    return is_whole ? std::move(line) : nullptr;
}

std::unique_ptr<curl_line> idle_line(const std::string& destination) {
    const std::size_t key = std::hash<std::string>()(destination);
    for (std::size_t i = 0; i < k_max_idle_connections; ++i) {
        const std::size_t index = (my_place + i) % k_max_idle_connections;
        place& one = places()[index];
        if (one.key != key || !one.take(place_state::idle)) continue;
        if (one.line->destination == destination) {
            my_place = index;
            return one.empty();
        }
        one.leave(place_state::idle);
    }
    return nullptr;
}

// Into an empty place; false, with the line still in it, when there is none.
bool has_put(std::unique_ptr<curl_line>& line, clock::rep now) {
    for (std::size_t i = 0; i < k_max_idle_connections; ++i) {
        const std::size_t index = (my_place + i) % k_max_idle_connections;
        if (!places()[index].take(place_state::empty)) continue;
        places()[index].put(std::move(line), now);
        my_place = index;
        return true;
    }
    return false;
}

// In place of the one that has been idle longest, which is closed. Where others have just taken
// that one, the given line is closed.
void put_for_oldest(std::unique_ptr<curl_line> line, clock::rep now) {
    std::size_t oldest = 0;
    for (std::size_t i = 1; i < k_max_idle_connections; ++i) {
        if (places()[i].idle_since < places()[oldest].idle_since) oldest = i;
    }
    place& one = places()[oldest];
    if (!one.take(place_state::idle)) return;
    const auto closing = std::move(one.line);
    one.put(std::move(line), now);
    my_place = oldest;
}

// Closing a connection over TLS says goodbye to its peer: of each place for itself, so that nobody
// waits for it.
void close_older_than(clock::rep oldest) {
    for (place& one : places()) {
        if (one.idle_since < oldest && one.take(place_state::idle)) one.empty();
    }
}

constexpr clock::rep count_of(std::chrono::seconds time) { return clock::duration(time).count(); }

// Once a second: a look at all places costs as much as the rest of it.
void close_old(clock::rep now) {
    static std::atomic<clock::rep> next_look{0};
    if (now < next_look) return;
    next_look = now + count_of(std::chrono::seconds(1));
    close_older_than(now - count_of(std::chrono::seconds(k_idle_connection_seconds)));
}

}  // namespace

std::unique_ptr<curl_line> borrow(const std::string& destination) {
    if (auto line = idle_line(destination)) return line;
    auto line = make();
    if (line != nullptr) line->destination = destination;
    return line;
}

void give_back(std::unique_ptr<curl_line> line, clock::time_point now) {
    const clock::rep count = now.time_since_epoch().count();
    if (!has_put(line, count)) put_for_oldest(std::move(line), count);
    close_old(count);
}

}  // namespace curl_lines

}  // namespace pennywort::httpclient
