// talker_win.cpp - a program that the tests of child processes start: it reads its input and ends,
// in the way that its arguments say.
//
// talker STATUS BYTES TEXT: reads BYTES of its input (-1: all), says TEXT on its error output, and
// ends with STATUS. With BYTES -2 it reads nothing and waits to be ended.
#include <windows.h>

#include <cstdio>
#include <cstdlib>

namespace {

void read_input(long bytes) {
    char some[4096];
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD got = 0;
    while (bytes != 0 && ReadFile(input, some, sizeof some, &got, nullptr) && got > 0) {
        if (bytes > 0) bytes = bytes > static_cast<long>(got) ? bytes - static_cast<long>(got) : 0;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 99;
    const long bytes = std::atol(argv[2]);
    if (bytes == -2) Sleep(INFINITE);
    read_input(bytes);
    std::fprintf(stderr, "first line\n%s\n", argv[3]);
    std::printf("this goes nowhere\n");
    return std::atoi(argv[1]);
}
