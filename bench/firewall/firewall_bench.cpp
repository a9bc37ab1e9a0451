// firewall_bench.cpp - what a query costs, the first of a process and the ones behind it.
// usage: firewall_bench PORT COUNT; prints the answer, then a line with the milliseconds of each,
// by the clock and of the processor.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "firewall.h"

namespace {

double processor_ms() {
    return static_cast<double>(std::clock()) * 1000.0 / static_cast<double>(CLOCKS_PER_SEC);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const long port = std::atol(argv[1]);
    cFirewall::Startup();
    for (int left = std::atoi(argv[2]); left > 0; --left) {
        const double busy = processor_ms();
        const auto begin = std::chrono::steady_clock::now();
        zString why;
        const cFirewallAnswer answer = cFirewall::QueryTCPPort(port, why);
        const std::chrono::duration<double, std::milli> passed =
            std::chrono::steady_clock::now() - begin;
        std::printf("%d %.3f %.3f\n", static_cast<int>(answer), passed.count(),
                    processor_ms() - busy);
    }
    cFirewall::Shutdown();
    return 0;
}
