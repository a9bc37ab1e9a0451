// own_server.cpp - our server of the comparison: every GET gets 1 KiB. Prints its port, serves
// until its standard input ends. As an argument: "typical" for a handler that sends head and body
// by one call each, "short" for one that sends its answer by one call.
#include <cstdio>
#include <string_view>

#include "answer_text.h"
#include "httpserver.h"

namespace {

class typical_handler final : public cHttpHandler {
public:
    bool CanHandle(std::int32_t, const zString&, const zString&, const zString&,
                   const char*) override {
        return true;
    }
    zStatus Handle(zSocket* socket, std::int32_t, const zString&, const zString&, const zString&,
                   const char*) override {
        SendHeaders(socket, static_cast<std::int32_t>(answer_text().size()), "text/plain");
        return SendString(socket, answer_text().c_str());
    }
};

}  // namespace

int main(int argc, char** argv) {
    const bool is_typical = argc < 2 || std::string_view(argv[1]) != "short";
    cHttpServerSettings settings;
    settings.bindAddress = "127.0.0.1";
    settings.backlog = 1024;
    cHttpServer server(0, 16 * 1024, settings);
    cHttpHandler* handler =
        is_typical ? static_cast<cHttpHandler*>(new typical_handler)
                   : new cHttpTextHandler("/", "text/plain", zString(std::string(answer_text())));
    server.InstallHandler(*handler);
    handler->Release();
    std::printf("%d\n", server.ListenPort());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
}
