// server.cpp - serves one text over HTTP, asks for it over a socket of its own, and takes the
// headers of the answer apart.
#include <httpserver.h>
#include <utils.h>

#include <cstdio>
#include <string>

namespace {

// Everything up to the end of the connection or of the time.
std::string ask(std::int32_t port, const std::string& request, const char* last) {
    constexpr std::int32_t k_wait_ms = 10000;
    const std::unique_ptr<zSocket> socket(zSocket::Factory());
    std::string answer;
    if (socket->Open(0) != 0 ||
        socket->Connect("127.0.0.1", static_cast<std::uint16_t>(port), k_wait_ms) != 0 ||
        socket->Send(request.data(), static_cast<std::int32_t>(request.size()), 0, k_wait_ms) !=
            0) {
        return answer;
    }
    _zSocket_select entry{socket.get(), zSocket::k_readable, 0};
    zHeap<_zSocket_select*> set;
    set.Add(&entry);
    const cBoyerMoore end(last, static_cast<std::int32_t>(std::string(last).size()));
    std::int32_t ready = 0;
    while (end.FindIn(answer.data(), static_cast<std::int32_t>(answer.size())) < 0) {
        char bytes[4096];
        std::int32_t count = 0;
        if (zSocket::Select(&set, k_wait_ms, &ready) != 0 || ready == 0) break;
        if (socket->Receive(bytes, sizeof bytes, &count) != 0 || count == 0) break;
        answer.append(bytes, static_cast<std::size_t>(count));
    }
    return answer;
}

}  // namespace

int main() {
    cHttpServerSettings settings;
    settings.bindAddress = "127.0.0.1";
    cHttpServer server(0, 4096, settings);
    auto* text = new cHttpTextHandler("/", "text/plain", "on air");
    server.InstallHandler(*text);
    text->Release();
    const std::string answer =
        ask(server.ListenPort(), "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", "on air");
    const std::size_t line = answer.find("\r\n") + 2;
    zRecord headers;
    cUtils::HeaderParse(answer.data() + line, static_cast<std::int32_t>(answer.size() - line),
                        headers);
    std::printf("%s: %s\n", answer.substr(0, 15).c_str(),
                headers.AsString("Content-Type", "").c_str());
    return headers.AsString("Content-Length", "") == "6" ? 0 : 1;
}
