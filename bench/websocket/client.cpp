// bench/websocket/client.cpp - one contender, one measurement.
//
// usage: websocket_bench_client CONTENDER ping SECONDS PORT     messages of 100 bytes a second
//        websocket_bench_client CONTENDER bulk SECONDS PORT     MB/s each way, messages of 1 MiB
//        websocket_bench_client CONTENDER idle CONNECTIONS PORT bytes that each connection holds
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "bench/websocket/clients.h"

namespace {

constexpr std::chrono::milliseconds k_warm_up{300};
constexpr long k_warm_connections = 20;

std::unique_ptr<client> make(const std::string& name) {
    if (name == "beast-blocking") return make_beast_blocking(beast_settings::plain);
    if (name == "beast-asynchronous") return make_beast_asynchronous(beast_settings::plain);
    if (name == "tuned-blocking") return make_beast_blocking(beast_settings::tuned);
    if (name == "tuned-asynchronous") return make_beast_asynchronous(beast_settings::tuned);
    if (name == "own-system") return make_own_system();
    return make_own_asynchronous();
}

double cpu_microseconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto of = [](const timeval& time) {
        return double(time.tv_sec) * 1e6 + double(time.tv_usec);
    };
    return of(usage.ru_utime) + of(usage.ru_stime);
}

// Also prints what a message takes of the processor, which another load of the machine changes
// less.
double messages_per_second(client& one, std::uint16_t port, long seconds, std::size_t bytes) {
    const std::string message(bytes, 'm');
    if (!one.connect(port)) return 0;
    one.play(message, k_warm_up);
    const std::chrono::seconds time(seconds);
    const double before = cpu_microseconds();
    const auto count = double(one.play(message, time));
    std::printf("cpu %.2f\n", (cpu_microseconds() - before) / count);
    return count / double(seconds);
}

// Of the process: what it holds itself, in bytes.
double held_bytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) return std::strtod(line.c_str() + 8, nullptr) * 1024;
    }
    return 0;
}

double bytes_per_connection(client& one, std::uint16_t port, long connections) {
    for (long i = 0; i < k_warm_connections; ++i) one.connect(port);
    const double before = held_bytes();
    for (long i = 0; i < connections; ++i) {
        if (!one.connect(port)) return 0;
    }
    return (held_bytes() - before) / double(connections);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    const auto one = make(argv[1]);
    const std::string what = argv[2];
    const long amount = std::strtol(argv[3], nullptr, 10);
    const auto port = static_cast<std::uint16_t>(std::strtol(argv[4], nullptr, 10));
    constexpr std::size_t k_mebibyte = 1024 * 1024;
    double figure = 0;
    if (what == "ping") figure = messages_per_second(*one, port, amount, 100);
    if (what == "bulk")
        figure = messages_per_second(*one, port, amount, k_mebibyte) * k_mebibyte / 1e6;
    if (what == "idle") figure = bytes_per_connection(*one, port, amount);
    std::printf("figure %.1f\n", figure);
    std::fflush(stdout);
    std::_Exit(figure > 0 ? 0 : 1);
}
