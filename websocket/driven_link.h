// driven_link.h - a link whose loop is run by whoever waits for it: the calling threads.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "websocket/link/link.h"
#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

// Threads: any number at once. One of those that wait runs the loop; when it has what it waits for,
// the next one takes over.
class driven_link final : public link_listener, public std::enable_shared_from_this<driven_link> {
public:
    driven_link() = default;
    ~driven_link() override;

    bool open(link_request request);
    // After an open() that failed: the server has answered, and does not upgrade.
    bool is_refused() const;
    received_piece receive(std::span<char> into);
    bool send(std::string_view bytes, bool is_text);
    bool close(std::uint16_t code);
    // What the peer gave when it said goodbye.
    close_report goodbye() const;
    // Why the connection has ended, in words.
    std::string fault() const;
    // Ends every wait. Takes no memory.
    void drop() noexcept;

    void link_opened() noexcept override;
    void link_received(const link_piece& piece) noexcept override;
    void link_sent() noexcept override;
    void link_ended(const link_result& result) noexcept override;

private:
    using lock_type = std::unique_lock<std::mutex>;

    bool is_over() const { return m_is_dropped || m_end.has_value(); }
    template <typename operation>
    bool hand_over(operation begin) noexcept;
    template <typename operation>
    void begin_here(operation begin);
    template <typename operation, typename condition>
    bool carry_out(lock_type& lock, operation begin, condition is_done);
    template <typename condition>
    void wait(lock_type& lock, condition is_done);
    void take_turn(lock_type& lock);
    void run_one();
    template <typename work>
    void run_unlocked(lock_type& lock, work what);
    void end_sending(lock_type& lock);
    void make_room() noexcept;
    received_piece take_piece(std::span<char> into);
    received_piece piece_at_end();

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    loop m_loop;
    std::shared_ptr<link> m_link;
    link_piece m_piece;
    // Of the thread that receives, which is one at a time; while it has asked for more, also of the
    // link.
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_buffer_bytes = 0;
    std::size_t m_taken = 0;
    bool m_is_taking = false;
    std::optional<link_result> m_end;
    // Of the thread that runs the loop: it waits for no event once it has been told of one.
    bool m_has_told = false;
    // How many operations in a row were done at once, without a turn of the loop.
    int m_turns_missed = 0;
    bool m_is_driven = false;
    bool m_is_open = false;
    bool m_has_piece = false;
    bool m_is_sending = false;
    bool m_is_closing = false;
    bool m_is_end_told = false;
    std::atomic<bool> m_is_dropped{false};
};

}  // namespace pennywort::websocket
