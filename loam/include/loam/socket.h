// loam/socket.h - zSocket, a TCP socket, and the wait for many of them at once.
//
// Threads: not locked; a socket is used by one thread at a time. zSocketWaker::Wake may be called
// from any thread.
#pragma once

#include <cstdint>

#include "loam/export.h"
#include "loam/heap.h"
#include "loam/types.h"

class zSocket;

// One socket to wait for. Neither the entry nor the socket belongs to the set that it stands in.
struct _zSocket_select {
    zSocket* socket = nullptr;
    std::int32_t requested = 0;  // k_readable, k_writable or both; 0: nothing
    std::int32_t occurred = 0;   // filled by zSocket::Select
};

// Ends a wait of another thread.
class LOAM_API zSocketWaker {
public:
    // Null when the system gives none. The caller deletes it, when nobody waits with it.
    static zSocketWaker* Factory();

    zSocketWaker(const zSocketWaker&) = delete;
    zSocketWaker& operator=(const zSocketWaker&) = delete;
    virtual ~zSocketWaker();

    // Ends the wait that is under way, or else the next one. Many calls before it count as one.
    void Wake();

private:
    friend class zSocket;

    zSocketWaker() = default;
    void settle();

    std::intptr_t m_handle = -1;
};

// No operation but Connect, Send and Select ever waits. Sockets are not inherited by child
// processes, and a peer that has gone raises no signal. A failed call of the system is traced.
class LOAM_API zSocket {
public:
    // Nothing to receive or to accept now, or no room to send; try again after Select.
    static constexpr zStatus k_not_now = -10;
    // The time-out has passed first.
    static constexpr zStatus k_timed_out = -11;
    static constexpr zStatus k_address_in_use = -12;
    // The peer has reset the connection, or has not been heard of for so long that the system gave
    // it up.
    static constexpr zStatus k_lost = -13;
    // The process or the system has no descriptor or memory left.
    static constexpr zStatus k_no_resources = -14;
    // Everything else: not open, a bad argument, refused by the system.
    static constexpr zStatus k_failed = -1;

    // Events of Select. A connection that waits to be accepted, the peer's end of sending and a
    // connection that is lost make a socket readable; the latter makes it writable too.
    static constexpr std::int32_t k_writable = 2;
    static constexpr std::int32_t k_readable = 4;

    // The longest wait: as a time-out, any negative number.
    static constexpr std::int32_t k_no_time_out = -1;

    // A socket that is not open yet, owned by the caller; null when memory is out.
    static zSocket* Factory();

    zSocket(const zSocket&) = delete;
    zSocket& operator=(const zSocket&) = delete;
    // Closes the socket.
    virtual ~zSocket();

    // `kind` 0, the only one: TCP, over IPv6 and IPv4 alike where the system has both. A socket
    // that is open is closed first.
    virtual zStatus Open(std::int32_t kind);
    // The system may queue a few more than `backlog` connections, or fewer if that is very large.
    // Accepted sockets send without delay, and those whose peer is gone without a word are lost
    // once the system has asked for it in vain, by default after two hours of silence.
    virtual zStatus Listen(std::int32_t backlog);
    // Hands the connection that has waited longest to the caller, or null with the status; that
    // there is no descriptor for it is not traced. Pass 0.
    virtual zStatus Accept(zSocket** accepted, std::int32_t flags);
    // At most `size` bytes. 0 bytes with status 0: the peer has ended its sending.
    virtual zStatus Receive(char* buffer, std::int32_t size, std::int32_t* received);
    // Sends all bytes, waiting for room at most `timeout` milliseconds in all. On a failure some
    // may have been sent. Pass 0 for the flags.
    virtual zStatus Send(const char* data, std::int32_t length, std::int32_t flags,
                         std::int32_t timeout);

    // Lets Bind take a port whose old connections the system still remembers. On Windows it also
    // lets it take a port that another socket has asked for in the same way, whatever process that
    // belongs to; who must be alone asks for the next one instead.
    zStatus SetReuseAddress();
    // No other socket can take the port, whatever it asks for. On Linux that needs no asking, and
    // this does nothing.
    zStatus SetExclusiveAddress();
    // On all addresses of the machine. Port 0: the system chooses one.
    zStatus Bind(std::uint16_t port);
    // On one address, "127.0.0.1" or "::1" for instance; names are not looked up. Null or "": all.
    zStatus BindTo(const char* address, std::uint16_t port);
    // 0 unless the socket is bound.
    std::uint16_t LocalPort() const;
    // Connects the open socket to a numeric address, waiting at most `timeout` milliseconds.
    zStatus Connect(const char* address, std::uint16_t port, std::int32_t timeout);

    // Sends what there is room for now; `sent` is set also on a failure. k_not_now: no room.
    virtual zStatus SendSome(const char* data, std::int32_t length, std::int32_t* sent);
    // The next Send is not the last of its message. On Linux the system may hold its bytes, for at
    // most 200 ms, so that they leave together with what follows.
    virtual void MoreFollows();
    // Tells the peer that nothing more will be sent; receiving goes on.
    virtual zStatus EndSending();
    // Sends small pieces at once instead of collecting them.
    zStatus SetNoDelay(bool on);
    bool IsNoDelay() const;
    virtual bool IsOpen() const;
    virtual void Close();
    // Closes the connection by a reset: what was not received is lost on both sides.
    virtual void Reset();

    // Waits until a socket of the set is ready, for at most `timeout` milliseconds. Fills the
    // entries, and `ready` with the number of those that are; 0 when the time has passed. Entries
    // whose socket is null or not open are never ready. Returns k_failed only when the system
    // cannot wait at all, or for a null `set` or `ready`, and k_no_resources without memory for so
    // many.
    static zStatus Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready);
    // The same, and `waker`, unless it is null, ends the wait early; it does not count as ready.
    static zStatus Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready,
                          zSocketWaker* waker);

protected:
    zSocket();

private:
    zStatus send_now(const char* data, std::int32_t length, std::int32_t timeout,
                     bool more_follows);
    zStatus send_some_now(const char* data, std::int32_t length, std::int32_t* sent,
                          bool more_follows);
    zStatus wait_writable(std::int32_t timeout);
    void close_handle();

    std::intptr_t m_handle = -1;
    bool m_more_follows = false;
    bool m_is_ipv6 = false;
};
