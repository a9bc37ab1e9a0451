// loam/native_socket.h - the system's calls for sockets, one function each. Twins:
// native_socket_linux.cpp, native_socket_win.cpp. What is made of them stands in socket.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace loam {

using socket_handle = std::intptr_t;
inline constexpr socket_handle k_no_socket = -1;

// What a call of the system gave: its value, or the system's code, which is not 0 then.
struct socket_result {
    const char* call = "";  // its name, for a trace
    std::intptr_t value = 0;
    int error = 0;
};

// An address of either family in the system's own form.
struct socket_address {
    static constexpr std::size_t k_most = 128;

    alignas(8) std::byte bytes[k_most] = {};
    int size = 0;
};

// Whether `text` is a numeric address that a socket of the family can take: one of IPv6 takes those
// of IPv4 too. Null or "" stands for all addresses of the machine.
bool read_address(const char* text, std::uint16_t port, bool is_ipv6, socket_address& address);

enum class socket_option { reuse_address, exclusive_address, no_delay, keep_alive, ipv6_only };
enum class follow { nothing, more };  // whether the system may wait for more before it sends

// The value is a handle of a TCP socket that never blocks and that child processes do not inherit.
socket_result open_socket(bool is_ipv6);
socket_result accept_socket(socket_handle listener);
void close_socket(socket_handle handle);
// Closes with a reset.
void abort_socket(socket_handle handle);

socket_result set_option(socket_handle handle, socket_option option, bool on);
bool has_option(socket_handle handle, socket_option option);
socket_result bind_socket(socket_handle handle, const socket_address& address);
socket_result listen_socket(socket_handle handle, std::int32_t backlog);
// 0 unless it is bound.
std::uint16_t local_port(socket_handle handle);
// Those below give a number of bytes.
socket_result receive_bytes(socket_handle handle, char* buffer, std::int32_t size);
socket_result send_bytes(socket_handle handle, const char* data, std::int32_t length, follow what);
socket_result end_sending(socket_handle handle);
// Begins to connect; the value is 1 when the connection is there already.
socket_result begin_connect(socket_handle handle, const socket_address& address);
// Waits for the end of that, which the error tells; the value is 0 when the time has passed.
socket_result wait_connected(socket_handle handle, std::int32_t timeout);

// What ends a wait from another thread: a handle that socket_wait can wait for.
socket_result open_waker();
void wake(socket_handle waker);
void settle_waker(socket_handle waker);

enum class socket_fault { not_now, timed_out, address_in_use, lost, no_resources, other };
socket_fault fault_of(int error);
// The code, in the system's words where it has any.
std::string socket_error_text(int error);

// The handles that one call waits for. A few need no memory but the caller's stack.
class socket_wait {
public:
    explicit socket_wait(std::size_t most);
    socket_wait(const socket_wait&) = delete;
    socket_wait& operator=(const socket_wait&) = delete;
    ~socket_wait();

    // False when there is no memory for so many; nothing else may be called then.
    bool is_made() const { return m_entries != nullptr; }
    // `events` are those of zSocket.
    void add(socket_handle handle, std::int32_t events);
    std::size_t count() const { return m_count; }
    // Waits for at most so many milliseconds, a negative number for ever. The value is how many
    // are ready.
    socket_result wait(std::int32_t timeout);
    // Of the handle that was added as number `index`: what occurred, whether asked for or not.
    std::int32_t occurred(std::size_t index) const;

private:
    static constexpr std::size_t k_few = 128;
    static constexpr std::size_t k_entry_bytes = 16;

    alignas(8) std::byte m_few[k_few * k_entry_bytes];
    std::byte* m_entries;
    std::size_t m_count = 0;
};

}  // namespace loam
