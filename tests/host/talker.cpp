// talker.cpp - a program that the tests of child processes start: it reads its input and ends, in
// the way that its arguments say.
//
// talker STATUS BYTES TEXT: reads BYTES of its input (-1: all), says TEXT on its error output, and
// ends with STATUS. With BYTES -2 it reads nothing and waits to be ended.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

[[noreturn]] void wait_to_be_ended() {
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

void read_input(long bytes) {
    char some[4096];
    const bool all = bytes < 0;
    while (all || bytes > 0) {
        const std::size_t most =
            all ? sizeof some : std::min(sizeof some, static_cast<std::size_t>(bytes));
        const std::size_t got = std::fread(some, 1, most, stdin);
        if (got == 0) return;
        bytes -= static_cast<long>(got);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 99;
    const long bytes = std::atol(argv[2]);
    if (bytes == -2) wait_to_be_ended();
    read_input(bytes);
    std::fprintf(stderr, "first line\n%s\n", argv[3]);
    std::printf("this goes nowhere\n");
    return std::atoi(argv[1]);
}
