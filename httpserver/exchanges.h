// exchanges.h - what passes over a server's connections: requests come in, answers go out.
//
// A handler or a body may delete the server that calls it. That closes all sockets and releases the
// handlers; everything that is touched here lives on with the loop, and each connection finds its
// socket closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/run/clock.h"
#include "httpserver.h"
#include "httpserver/answer_filter.h"
#include "httpserver/connection.h"
#include "httpserver/handler_list.h"
#include "httpserver/request_view.h"
#include "httpserver/server_counts.h"

namespace pennywort::httpserver {

// Threads: the server's.
class exchanges {
public:
    // All of them outlive this. `receive_buffer` holds one byte more than `buffer_size`.
    exchanges(const cHttpServerSettings& settings, const run::monotonic_clock& clock,
              handler_list& handlers, server_counts& counts, char* receive_buffer,
              std::int32_t buffer_size);

    // Does what the connection's stage asks for, once its socket is ready.
    fate serve(connection& one);
    // Before the end of a connection.
    void forget(const connection& one);
    // Connections that send pieces or are parting.
    std::int32_t timed() const { return m_timed; }

private:
    // What the handlers have done with a request.
    enum class meeting { nobody, done, failed };
    enum class reading { unfinished, complete, too_long };

    fate handle_client_read(connection& one);
    fate take_text(connection& one, std::int32_t received);
    reading look(connection& one, std::string_view text);
    fate dispatch_text(connection& one, std::string_view text);
    fate finish_text(connection& one, meeting met);

    fate take_strict(connection& one, std::string_view bytes);
    fate dispatch_strict(connection& one);
    fate finish_strict(connection& one, meeting met);
    fate continue_or_part(connection& one);
    fate refuse(connection& one, std::int32_t status);
    fate answer_status(connection& one, std::int32_t status, std::string_view allowed);
    std::string allowed_methods();
    void acquire_reader(connection& one);
    void release_reader(connection& one);
    std::int64_t max_request_bytes() const;

    meeting offer(connection& one);
    meeting offer_to(cHttpHandler& handler, connection& one);
    bool would_take(std::int32_t method);
    fate send_answer(connection& one);
    fate send_whole_strictly(connection& one);
    std::int64_t rest_of_answer(connection& one, std::int64_t size);
    fate begin_rest(connection& one, std::string front, std::unique_ptr<cHttpBody> rest,
                    std::int64_t size);
    std::string head_of_answer(std::int64_t length, bool is_last) const;
    fate begin_pieces(connection& one, std::unique_ptr<cHttpBody> pieces);
    fate send_pieces(connection& one);
    fate send_piece(connection& one, std::int64_t size);
    fate end_pieces(connection& one);
    void begin_timed(connection& one, stage at);
    fate part(connection& one);
    fate discard(connection& one);
    void name_parts(std::string_view request);
    void settle_names(std::size_t request_size);
    const std::string& date();

    const cHttpServerSettings& m_settings;
    const run::monotonic_clock& m_clock;
    handler_list& m_handlers;
    server_counts& m_counts;
    char* const m_receive_buffer;
    const std::int32_t m_buffer_size;
    std::int32_t m_timed = 0;

    // Of the request that is being answered, kept so that the next one costs no allocation.
    request_names m_names;
    request_view m_view;
    answer_parts m_answer;
    answer_filter m_filter;
    std::unique_ptr<strict_request> m_spare_reader;
    std::vector<char> m_piece;
    std::string m_date;
    std::int64_t m_date_second = -1;
};

}  // namespace pennywort::httpserver
