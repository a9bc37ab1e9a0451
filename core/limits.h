// limits.h - the maxima of whatever a page, a peer or a user can drive, in one place. loam's own
// stand in loam, which may not include this.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace pennywort {

// --- Pages and displays

// Pages that script may open without a click live off screen and unseen; more are refused.
inline constexpr int k_max_popups = 8;

// Longest side of a page in pixels; the runtime cannot allocate larger textures.
inline constexpr long k_max_view_side = 16384;

// Windows walked up from a focused one in search of a page's, and bytes of a window class's name.
inline constexpr int k_max_window_depth = 255;
inline constexpr std::size_t k_max_window_class = 63;

// How long a display waits for its browser to close: rounds, and the wait of each.
inline constexpr int k_close_rounds = 100;
inline constexpr std::uint32_t k_close_round_us = 100'000;

// How long the shutdown waits for browsers that do not close.
inline constexpr std::int64_t k_max_closing_us = 10'000'000;

// How long the trial run of the runtime's helper program may hold the start up, and bytes of what
// it says that are kept.
inline constexpr std::chrono::milliseconds k_max_helper_trial{1000};
inline constexpr std::size_t k_max_helper_words = 4096;

// --- Headers

// Bytes of a header's name; headers with longer ones are passed over.
inline constexpr std::size_t k_max_header_name = 254;

// Bytes and headers of a message's head, and of what stands behind a chunked body.
inline constexpr std::size_t k_max_head_bytes = 64 * 1024;
inline constexpr std::size_t k_max_headers = 128;

// Bytes of what may stand beside the sizes of a body's chunks, for all of them together.
inline constexpr std::size_t k_max_chunk_extension_bytes = 16 * 1024;

// Bytes of a URL.
inline constexpr std::size_t k_max_url_bytes = 32 * 1024;

// --- HTTP server

// Bytes of one request to the server, which counts them in 32 bits with a NUL behind.
inline constexpr std::int32_t k_max_request_bytes = 0x7ffffffe;

// Memory of a request that has grown beyond this is not kept for the next one.
inline constexpr std::uint32_t k_max_kept_request_bytes = 64 * 1024;

// Bytes that a peer whose request was refused may still send before its connection is cut off.
inline constexpr std::int64_t k_max_dropped_bytes = 1 << 20;

// Bytes of a long response that are read and sent at once, and how many such pieces one connection
// gets before the others are served again.
inline constexpr std::size_t k_http_piece_bytes = 256 * 1024;
inline constexpr int k_max_pieces_at_once = 4;

// How long a handler's response waits for a peer that takes nothing.
inline constexpr std::int32_t k_send_timeout_ms = 5000;

// --- HTTP client

// Redirects of one request, and responses such as "100 Continue" before one that counts.
inline constexpr int k_max_redirects = 10;
inline constexpr int k_max_interim_responses = 32;

// Bytes of a redirect's body that are read so that its connection can be used again.
inline constexpr std::size_t k_max_skipped_bytes = 64 * 1024;

// Bytes of a response that wait for the caller: as many as stay in a processor's cache while they
// are copied.
inline constexpr std::size_t k_http_receive_bytes = 64 * 1024;

// Connections that are kept between requests, and for how long.
inline constexpr std::size_t k_max_idle_connections = 32;
inline constexpr int k_idle_connection_seconds = 60;

// --- WebSocket

// Bytes of one message that is received, and of what waits to be sent through one asynchronous
// socket.
inline constexpr std::size_t k_max_websocket_message_bytes = std::size_t(256) << 20;
inline constexpr std::size_t k_max_websocket_waiting_bytes = std::size_t(256) << 20;

// How long a connection may take to come about, a server to answer the upgrade, and a peer to say
// goodbye; the first two are those that WinHTTP has.
inline constexpr std::chrono::seconds k_max_websocket_connect{60};
inline constexpr std::chrono::seconds k_max_websocket_upgrade{30};
inline constexpr std::chrono::seconds k_max_websocket_goodbye{5};

// Reads and writes of a loop that succeed at once, in a row, before its other events have their
// turn: more than a message of a mebibyte takes.
inline constexpr int k_max_websocket_turns = 32;

// Memory of a message that a connection keeps for the next one; and of long messages, what the
// process keeps of them: how many, and each.
inline constexpr std::size_t k_max_kept_message_bytes = 1 << 20;
inline constexpr std::size_t k_max_spare_texts = 4;
inline constexpr std::size_t k_max_spare_text_bytes = 4 << 20;

// --- Discovery

// DNS-SD references whose events are processed; those past it stay silent.
inline constexpr std::size_t k_max_watched_references = 255;

// How long a service that was found may take to be looked up.
inline constexpr int k_max_resolve_ms = 2000;

// Bytes of a service's name.
inline constexpr std::size_t k_max_service_name = 63;

// Bytes of a TXT record and of one item of it, bytes of an item's key with its NUL, and items that
// are read of a record: more cannot be in one.
inline constexpr std::size_t k_max_txt_record = 65535;
inline constexpr std::size_t k_max_txt_item = 255;
inline constexpr std::size_t k_max_txt_key = 256;
inline constexpr std::uint32_t k_max_txt_items = 65536;

// --- Firewall

// Bytes of a rule set that is read, how often it is read again where it changes meanwhile, and how
// long the kernel may be silent.
inline constexpr std::size_t k_max_rule_set_bytes = std::size_t(64) << 20;
inline constexpr int k_max_rule_reads = 5;
inline constexpr std::chrono::seconds k_max_kernel_silence{2};
inline constexpr std::size_t k_netlink_buffer_bytes = 64 * 1024;

// Chains that lead into each other, twice what the kernel allows; addresses of the machine that are
// looked at.
inline constexpr int k_max_rule_jumps = 32;
inline constexpr std::size_t k_max_ways_in = 256;

// --- Pages: their calls of the host

// Calls of a page that may wait for the host program; the rest is dropped and counted.
inline constexpr std::int32_t k_max_waiting_page_calls = 1000;

// Bytes of a page's calls that wait for a host which has bounded their number, calls that such a
// page has made in vain before the host hears of them, and calls that are done before the page
// does.
inline constexpr std::size_t k_max_waiting_call_bytes = 16 << 20;
inline constexpr std::uint32_t k_calls_dropped_untold = 10'000;
inline constexpr std::uint32_t k_calls_handled_untold = 64;
inline constexpr std::size_t k_max_calling_frames = 256;

// Frames of a page by its own clock that wait for the one before them; and tasks that a page may
// run at one moment of its time before that moves on, since a loop of messages would hold it.
inline constexpr std::size_t k_max_waiting_page_frames = 8;
inline constexpr int k_max_starved_tasks = 1000;
// What such a page may sound like between two of its frames; and a file that it plays, which is
// decoded whole.
inline constexpr int k_max_page_sound_seconds = 10;
inline constexpr std::size_t k_max_page_file_bytes = 256 << 20;

// --- Host program: what a user may ask for

inline constexpr std::uint64_t k_max_frames = 1'000'000'000;
inline constexpr double k_max_render_seconds = 1'000'000;
inline constexpr double k_max_timeout_seconds = 3600;
inline constexpr std::size_t k_max_text_file_bytes = std::size_t(16) << 20;

// Bytes of one entry in a transcript.
inline constexpr std::int32_t k_max_logged_bytes = 1 << 20;

// --- Host program: WebSockets

// Messages of a feed that wait for a page to take them, of which the oldest are dropped; those that
// a page has been handed and not answered, and for how long: a page that has gone answers none.
inline constexpr std::size_t k_max_feed_messages = 10'000;
inline constexpr std::size_t k_max_feed_bytes = std::size_t(64) << 20;
inline constexpr std::size_t k_max_unanswered_messages = 64;
inline constexpr std::chrono::milliseconds k_max_message_patience{5000};

// The first wait before a feed that was lost is opened again, and the longest.
inline constexpr std::chrono::milliseconds k_first_feed_wait{1000};
inline constexpr std::chrono::milliseconds k_longest_feed_wait{30'000};

// Bytes of the input that wait to be sent: more of it is read when the server has taken these. And
// how long it may take none of them, behind the end of the input too: a server that collects
// garbage or starts anew is back by then, and whoever waits for the program has not given it up.
inline constexpr std::size_t k_max_waiting_input_bytes = std::size_t(16) << 20;
inline constexpr std::chrono::seconds k_max_input_pause{60};

// --- Host program: pages, encoders and disks that do not keep up

// How long a page may leave a question unanswered.
inline constexpr std::chrono::milliseconds k_max_page_silence{10'000};

// Different errors of its scripts that a page may have printed without being asked for them.
inline constexpr std::size_t k_max_told_script_errors = 10;

// How long an encoder may take nothing while it does next to nothing, too: longer than a slow
// disk ever makes it.
inline constexpr std::chrono::seconds k_max_encoder_pause{30};
// How long an encoder that has all frames may do nothing at all. It waits for the disk then, and a
// file server may take minutes for what it has promised to write.
inline constexpr std::chrono::minutes k_max_encoder_rest{10};
// How long an encoder may take, whatever it does, for the small picture that it is tried with
// before the start.
inline constexpr std::chrono::seconds k_max_encoder_trial{30};

// Bytes of pictures that wait to be written; then the next ones are dropped and counted.
inline constexpr std::size_t k_max_waiting_picture_bytes = std::size_t(768) << 20;

// Bytes of sound that wait to be written, a minute and a half; what comes then becomes silence.
inline constexpr std::size_t k_max_waiting_sound_bytes = std::size_t(32) << 20;

// Bytes of a child process's last line that are kept, and bytes read from a pipe whose child has
// ended: a process of its own may write on without end.
inline constexpr std::size_t k_max_last_line = 500;
inline constexpr std::size_t k_max_bytes_after_child = 1 << 16;

// --- Control page

inline constexpr std::int32_t k_max_control_request_bytes = 1024 * 1024;
inline constexpr std::int32_t k_max_control_connections = 64;

// Lines of each log, and bytes of each line.
inline constexpr std::size_t k_max_log_lines = 500;
inline constexpr std::size_t k_max_log_line = 4096;

// Pages in the queue and their bytes: all of it goes out with each state, and a URL may be a page
// itself.
inline constexpr std::size_t k_max_queued_pages = 1000;
inline constexpr std::size_t k_max_queue_bytes = 4 << 20;

// Scripts whose results are kept, bytes of a result, and how long a result is waited for: a page
// that was left before it returned one never does.
inline constexpr std::size_t k_max_kept_scripts = 100;
inline constexpr std::size_t k_max_script_result = 1 << 20;
inline constexpr std::chrono::seconds k_max_script_wait{10};

// How long a first page may take to come.
inline constexpr std::chrono::seconds k_max_page_opening{10};

// How often within a minute a page is loaded again whose process has ended.
inline constexpr std::size_t k_max_page_reloads = 5;

}  // namespace pennywort
