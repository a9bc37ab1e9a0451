// websocket/driven_link.cpp - see the header for the contract.
#include "websocket/driven_link.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "loam/trace.h"
#include "websocket/class_names.h"
#include "websocket/link/link_maker.h"

namespace pennywort::websocket {

namespace {

constexpr std::size_t k_first_bytes = 4 * 1024;
// For a message that is longer: as much of it as comes at once.
constexpr std::size_t k_long_bytes = 128 * 1024;
// For the thread that runs the loop: it tells of each event.
constexpr std::chrono::milliseconds k_longest_wait{1000};

piece_kind kind_of(bool is_text, bool is_last) {
    if (is_text) return is_last ? piece_kind::text_message : piece_kind::text_fragment;
    return is_last ? piece_kind::binary_message : piece_kind::binary_fragment;
}

}  // namespace

driven_link::~driven_link() {
    if (m_link == nullptr) return;
    m_link->drop();
    run::guarded(k_class_winhttp, "the end", [this] { m_loop.drain(); });
    m_link.reset();
}

// While another thread runs the loop, it begins the operation too; otherwise this one does.
template <typename operation, typename condition>
bool driven_link::carry_out(lock_type& lock, operation begin, condition is_done) {
    if (m_is_driven) {
        if (!hand_over(begin)) return false;
    } else {
        run_unlocked(lock, [&] { begin_here(begin); });
    }
    wait(lock, is_done);
    return true;
}

// An event that has come while the operation began may be the one that is waited for.
template <typename operation>
void driven_link::begin_here(operation begin) {
    m_has_told = false;
    m_loop.run_here([&] { begin(*m_link); });
    if (!m_has_told) return run_one();
    // A thread that sends without a pause would keep the one that receives waiting.
    if (++m_turns_missed < k_max_websocket_turns) return;
    m_turns_missed = 0;
    m_loop.poll();
}

void driven_link::run_one() {
    m_turns_missed = 0;
    m_loop.run_one();
}

// False without the memory to ask the thread that runs the loop.
template <typename operation>
bool driven_link::hand_over(operation begin) noexcept {
    return run::guarded(k_class_winhttp, "an operation",
                        [&] { m_loop.post([this, begin] { begin(*m_link); }); });
}

template <typename work>
void driven_link::run_unlocked(lock_type& lock, work what) {
    m_is_driven = true;
    lock.unlock();
    run::guarded(k_class_winhttp, "the loop", what);
    lock.lock();
    m_is_driven = false;
    m_changed.notify_all();
}

template <typename condition>
void driven_link::wait(lock_type& lock, condition is_done) {
    while (!is_over() && !is_done()) take_turn(lock);
}

// Another thread's event may be what this one waits for.
void driven_link::take_turn(lock_type& lock) {
    if (m_is_driven) {
        m_changed.wait_for(lock, k_longest_wait);
        return;
    }
    run_unlocked(lock, [this] { run_one(); });
}

bool driven_link::open(link_request request) {
    m_buffer = std::make_unique_for_overwrite<char[]>(k_first_bytes);
    m_buffer_bytes = k_first_bytes;
    m_link = current_link_maker()(m_loop, weak_from_this());
    lock_type lock(m_mutex);
    run_unlocked(lock, [&] { m_link->open(std::move(request)); });
    wait(lock, [this] { return m_is_open; });
    return m_is_open && !is_over();
}

bool driven_link::is_refused() const {
    const std::lock_guard lock(m_mutex);
    return m_end && m_end->fault == link_fault::refused;
}

// What has come is the receiver's alone until it is used up.
received_piece driven_link::receive(std::span<char> into) {
    if (m_is_taking) return m_is_dropped ? received_piece() : take_piece(into);
    lock_type lock(m_mutex);
    if (!m_has_piece && !is_over()) {
        make_room();
        carry_out(
            lock,
            [this](link& on) {
                on.receive({m_buffer.get(), m_buffer_bytes});
            },
            [this] { return m_has_piece; });
    }
    if (!m_has_piece || m_is_dropped) return piece_at_end();
    m_has_piece = false;
    return take_piece(into);
}

// Without memory for more the small buffer has to do.
void driven_link::make_room() noexcept {
    if (m_piece.to_come <= m_buffer_bytes || m_buffer_bytes == k_long_bytes) return;
    std::unique_ptr<char[]> larger(new (std::nothrow) char[k_long_bytes]);
    if (larger == nullptr) return;
    m_buffer = std::move(larger);
    m_buffer_bytes = k_long_bytes;
}

received_piece driven_link::take_piece(std::span<char> into) {
    const std::size_t size = std::min(into.size(), m_piece.size - m_taken);
    std::copy_n(m_buffer.get() + m_taken, size, into.data());
    m_taken += size;
    m_is_taking = m_taken < m_piece.size;
    return {receive_status::ok, kind_of(m_piece.is_text, m_piece.is_last && !m_is_taking), size};
}

// The peer's goodbye comes as a piece, once. What we have ended ourselves is no loss.
received_piece driven_link::piece_at_end() {
    const bool is_told = std::exchange(m_is_end_told, true);
    if (m_is_dropped || m_is_closing || !m_end || is_told) return {};
    if (m_end->fault == link_fault::closed) return {receive_status::ok, piece_kind::close, 0};
    return {receive_status::connection_lost, piece_kind::close, 0};
}

bool driven_link::send(std::string_view bytes, bool is_text) {
    lock_type lock(m_mutex);
    wait(lock, [this] { return !m_is_sending; });
    if (is_over() || m_is_closing) return false;
    m_is_sending = true;
    if (!carry_out(
            lock, [bytes, is_text](link& on) { on.send(bytes, is_text); },
            [this] { return !m_is_sending; })) {
        m_is_sending = false;
        return false;
    }
    if (m_is_sending) end_sending(lock);
    return !m_is_sending && !m_is_dropped;
}

// The end came from elsewhere: what has been begun may look at the bytes once more, which are the
// caller's.
void driven_link::end_sending(lock_type& lock) {
    while (m_is_driven) m_changed.wait_for(lock, k_longest_wait);
    run_unlocked(lock, [this] {
        m_link->drop();
        m_loop.drain();
    });
}

bool driven_link::close(std::uint16_t code) {
    lock_type lock(m_mutex);
    if (is_over() || m_is_closing) return false;
    m_is_closing = true;
    const bool is_asked = carry_out(
        lock, [code](link& on) { on.close(code); }, [] { return false; });
    return is_asked && m_end && m_end->fault == link_fault::closed;
}

close_report driven_link::goodbye() const {
    const std::lock_guard lock(m_mutex);
    return m_end ? close_report{m_end->code, m_end->text} : close_report();
}

std::string driven_link::fault() const {
    const std::lock_guard lock(m_mutex);
    return m_end ? m_end->text : std::string();
}

void driven_link::drop() noexcept {
    const std::lock_guard lock(m_mutex);
    m_is_dropped = true;
    m_loop.stop();
    m_changed.notify_all();
}

void driven_link::link_opened() noexcept {
    const std::lock_guard lock(m_mutex);
    m_is_open = true;
}

void driven_link::link_received(const link_piece& piece) noexcept {
    const std::lock_guard lock(m_mutex);
    m_has_told = true;
    m_piece = piece;
    m_taken = 0;
    m_has_piece = true;
}

void driven_link::link_sent() noexcept {
    const std::lock_guard lock(m_mutex);
    m_has_told = true;
    m_is_sending = false;
}

void driven_link::link_ended(const link_result& result) noexcept {
    const std::lock_guard lock(m_mutex);
    m_has_told = true;
    m_end.emplace();
    m_end->fault = result.fault;
    m_end->code = result.code;
    run::guarded(k_class_winhttp, "the end's words", [&] { m_end->text = result.text; });
    zTraceManager::Default()->TraceNote("cWebSocket_WinHttp: the connection has ended: %s\n",
                                        result.text.c_str());
}

}  // namespace pennywort::websocket
