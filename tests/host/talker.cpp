// talker.cpp - a program that the tests of child processes start: it reads its input and ends, in
// the way that its arguments say.
//
// talker STATUS BYTES TEXT: reads BYTES of its input (-1: all), says TEXT on its error output, and
// ends with STATUS. Instead of BYTES:
//   flood    says TEXT behind more than any pipe holds, all in one piece
//   spin     reads nothing, and works until it is ended
//   wait     reads nothing and waits to be ended
//   leave    starts one that writes into the file TEXT as long as it is there, and ends
//   follow   starts the same one, and waits to be ended
//   write    is that one
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/host/start_another.h"

namespace {

using namespace std::chrono_literals;

[[noreturn]] void wait_to_be_ended() {
    for (;;) std::this_thread::sleep_for(1h);
}

[[noreturn]] void spin() {
    for (volatile int turn = 0;;) turn = 1 - turn;
}

// Ends when the file is removed, and at some time in any case; and says so then, so that a test can
// tell whether somebody waited for it.
void write_for_a_while(const char* file) {
    for (int i = 0; i < 3000; ++i) {
        std::FILE* out = std::fopen(file, "r+b");
        if (!out) return;
        std::fseek(out, 0, SEEK_END);
        std::fputc('.', out);
        std::fclose(out);
        std::this_thread::sleep_for(10ms);
    }
    std::fprintf(stderr, "the other one has ended\n");
}

int flood(const char* text) {
    std::string all(3'000'000, 'x');
    all += '\n' + std::string(text) + '\n';
    std::setvbuf(stderr, nullptr, _IOFBF, all.size() + 1);
    return std::fputs(all.c_str(), stderr);
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
    const std::string way = argv[2];
    if (way == "spin") spin();
    if (way == "wait") wait_to_be_ended();
    if (way == "flood") return flood(argv[3]), std::atoi(argv[1]);
    if (way == "write") return write_for_a_while(argv[3]), 0;
    if (way == "leave" || way == "follow") {
        const char* const other[] = {argv[0], "0", "write", argv[3], nullptr};
        if (!start_another(other)) return 98;
        if (way == "follow") wait_to_be_ended();
    } else {
        read_input(std::atol(argv[2]));
    }
    std::fprintf(stderr, "first line\n%s\n", argv[3]);
    std::printf("this goes nowhere\n");
    return std::atoi(argv[1]);
}
