// curl_transfer.h - one exchange by libcurl: a request goes out and its response comes in, on the
// caller's thread. Built where libcurl is: WinHTTP needs none of it.
#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/http/head_parser.h"
#include "core/run/deadline.h"
#include "httpclient.h"
#include "httpclient/curl_lines.h"
#include "httpclient/curl_request.h"

namespace pennywort::httpclient {

// Failures, as a session tells them.
using request_error = cHttpSession::request_error;
using enum cHttpSession::request_error;

// How long each wait of an exchange may take; 0 means for ever.
struct curl_patience {
    std::int32_t connect_ms = 0;
    std::int32_t move_ms = 0;
};

// What goes out.
struct curl_order {
    request_target target;
    std::string origin;       // of the target
    std::string destination;  // whoever may use one line to it may use the other
    std::string verb;
    std::string headers;  // lines with CR LF
    std::string user_agent;
    std::string proxy;    // empty: none
    std::string ca_file;  // empty: the system's certificates
    // Of this request's earlier answers, in libcurl's own form.
    std::vector<std::string> cookies;
    curl_patience patience;
    // The body that is announced. One that is short and known goes out together with the headers;
    // the rest waits for send_body.
    std::uint32_t total = 0;
    std::string_view body;
    bool is_body_known = false;
};

enum class curl_stage {
    connected,  // the request goes out
    sent,       // all that send_body was given
    head,       // of the response, but for those that only say that one will come
    piece,      // some of the body, or its end
    end
};

// libcurl runs an exchange as a whole; reach() runs it until it has come as far as the caller goes.
// Not more than k_http_receive_bytes of a body wait for the caller.
class curl_transfer {
public:
    curl_transfer() = default;
    curl_transfer(const curl_transfer&) = delete;
    curl_transfer& operator=(const curl_transfer&) = delete;
    ~curl_transfer() { end(); }

    // Forgets the exchange before. False without memory, or when libcurl refuses a part of it. What
    // `order.body` shows must last until the head has come.
    bool start(const curl_order& order);
    // The body that was announced, or a part of it; must last like the order's.
    void send_body(std::string_view body);
    // False when the exchange ends before, or nothing moves for as long as the order allows.
    bool reach(curl_stage stage);
    // The head that has come, and its lines, the status line first, each with CR LF.
    const http::message_head& head() const { return m_parser.head(); }
    const std::string& raw_head() const { return m_raw_head; }
    bool has_head() const { return m_has_head; }
    // The body of a redirect is held back until one of the two: it is read like any other, or
    // dropped as it comes; a long one ends the exchange.
    void keep_body();
    void drop_body();
    // Bytes that reach(curl_stage::piece) has brought; take_piece removes them from the front. They
    // lie where the last offer was, as long as they fit; else in memory of the transfer's own.
    std::string_view piece() const;
    void take_piece(std::size_t count);
    // Memory for the next reach(curl_stage::piece), whose bytes are to be taken before it ends or
    // moves. Nothing is left of the piece before.
    void offer(char* into, std::size_t room);
    bool is_at_end() const { return m_is_done; }
    // What the cookies of a redirect have come to, for the next order.
    std::vector<std::string> take_cookies() { return std::move(m_cookies); }
    // Gives the connection back.
    void end();

    // Why the last thing that failed did.
    request_error fault() const { return m_fault; }
    // Ends a reach() that another thread is in, and fails each later one. From any thread.
    void cancel();
    void forget_cancel() { m_is_cancelled = false; }

private:
    enum class body_mode { held, kept, dropped };

    void forget();
    // Where one of these is false the fault has been noted.
    bool set_text(CURLoption option, const char* text);
    bool set_options(const curl_order& order, const std::string& url);
    bool set_rules();
    bool set_route(const curl_order& order);
    void set_callbacks();
    void set_user();
    void set_cookies(const std::vector<std::string>& cookies);
    bool set_url(const std::string& url);
    bool set_body(const curl_order& order);
    bool set_headers(const curl_order& order);
    bool make_headers(const curl_order& order, bool has_body);
    bool add_lines(std::string_view block);
    bool leave_out(const char* name, std::string_view block);
    bool is_at(curl_stage stage) const;
    bool run_once();
    bool wait(const run::deadline& end);
    void note_end();
    void finish(CURLcode result);
    void resume();
    void keep_cookies();
    void release();
    void forget_retries();
    std::unique_ptr<curl_line> set_line(std::unique_ptr<curl_line> line);
    bool fail(request_error fault);
    request_error end_fault() const;
    run::deadline patience() const;

    std::size_t take_head_line(std::string_view line);
    void append_head_line(std::string_view line);
    bool take_head();
    std::size_t take_body(std::string_view bytes);
    std::size_t give_body(char* into, std::size_t room);
    static std::size_t on_header(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t on_body(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t on_read(char* into, std::size_t size, std::size_t count, void* self);
    static int on_seek(void* self, curl_off_t offset, int origin);
    static int on_connected(void* self, char*, char*, int, int);

    std::mutex m_line_mutex;  // held to change m_line, and to look at it from another thread
    std::unique_ptr<curl_line> m_line;  // until the exchange is over
    curl_patience m_patience;
    std::atomic<bool> m_is_cancelled{false};
    request_error m_fault = k_error_none;

    bool m_is_connected = false;
    bool m_has_head = false;  // of the final response
    bool m_is_done = false;
    bool m_is_out_of_memory = false;  // a callback was
    CURLcode m_result = CURLE_OK;
    bool m_has_moved = false;  // something has, in the last round

    std::string m_raw_head;
    http::head_parser m_parser{http::head_kind::answer, http::k_tolerant_answers};
    bool m_is_interim = false;  // what it holds came before the final one
    int m_interim_heads = 0;

    body_mode m_mode = body_mode::kept;
    bool m_is_paused = false;
    char* m_offered = nullptr;
    std::size_t m_room = 0;
    std::size_t m_landed = 0;   // bytes where the offer is, not taken yet
    std::string m_buffer;       // what came behind those
    std::size_t m_taken = 0;    // of the buffer
    std::size_t m_dropped = 0;  // bytes
    std::vector<std::string> m_cookies;

    std::string_view m_body;
    std::size_t m_sent = 0;
    std::uint32_t m_total = 0;
    bool m_has_body = false;    // send_body was called
    bool m_is_reading = false;  // the body goes out piece by piece
};

}  // namespace pennywort::httpclient
