// microhttpd_server.cpp - libmicrohttpd of the comparison, with one thread as ours has. Prints its
// port, serves until its standard input ends. As an argument: "select" or "epoll".
#include <microhttpd.h>

#include <cstdio>
#include <string_view>

#include "answer_text.h"

namespace {

// The first call tells only that the headers are there: answered then, the connection would be
// closed after each answer.
MHD_Result answer(void*, MHD_Connection* connection, const char*, const char*, const char*,
                  const char*, size_t*, void** has_begun) {
    static char begun;
    if (*has_begun == nullptr) {
        *has_begun = &begun;
        return MHD_YES;
    }
    static MHD_Response* const response = MHD_create_response_from_buffer(
        answer_text().size(), const_cast<char*>(answer_text().data()), MHD_RESPMEM_PERSISTENT);
    return MHD_queue_response(connection, MHD_HTTP_OK, response);
}

}  // namespace

int main(int argc, char** argv) {
    const bool is_epoll = argc > 1 && std::string_view(argv[1]) == "epoll";
    const auto flags = static_cast<unsigned>(is_epoll ? MHD_USE_EPOLL_INTERNAL_THREAD
                                                      : MHD_USE_INTERNAL_POLLING_THREAD);
    MHD_Daemon* const daemon = MHD_start_daemon(
        flags, 0, nullptr, nullptr, &answer, nullptr, MHD_OPTION_LISTEN_BACKLOG_SIZE, 1024u,
        MHD_OPTION_CONNECTION_LIMIT, is_epoll ? 20000u : 1000u, MHD_OPTION_END);
    if (daemon == nullptr) return 1;
    const MHD_DaemonInfo* const info = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT);
    std::printf("%d\n", info->port);
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    MHD_stop_daemon(daemon);
}
