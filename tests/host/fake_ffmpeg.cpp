// fake_ffmpeg.cpp - a program that tests put in ffmpeg's place, by its name, on both systems.
//
// It takes all of its input and ends with 0. A trial, whose output is "-", ends there. For a film
// it first does what a file called `way` in its own folder says:
//   tries    works on its trial for ever, and takes nothing
//   silent   leaves a film without its end
//   told     does the same, and says on standard error that there was no room
//   whole    writes a whole film of the mov kind
//   works    does the same, and is at work for some seconds before
//   rests    waits to be ended
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace {

const std::string k_frames = std::string("\0\0\0\x0Cmdat", 8) + "1234";
const std::string k_index = std::string("\0\0\0\x08moov", 8);

std::string way_beside(const std::string& program) {
    const auto folder = program.substr(0, program.find_last_of("/\\") + 1);
    std::string way;
    std::ifstream(folder + "way") >> way;
    return way;
}

void take_input() {
    char some[4096];
    while (std::fread(some, 1, sizeof some, stdin) == sizeof some) {
    }
}

void work() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    while (std::chrono::steady_clock::now() < end) {
    }
}

[[noreturn]] void rest() {
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

}  // namespace

int main(int argc, char** argv) {
    const std::string film = argv[argc - 1];
    const std::string way = way_beside(argv[0]);
    if (way == "tries") {
        for (;;) work();
    }
    take_input();
    if (film == "-") return 0;
    if (way == "works") work();
    if (way == "rests") rest();
    const bool is_whole = way == "whole" || way == "works";
    const std::string path = film.substr(std::string("file:").size());
    std::ofstream(path, std::ios::binary) << k_frames << (is_whole ? k_index : "");
    if (way == "told") {
        std::fprintf(stderr, "Error writing trailer of %s: No space left on device\n",
                     path.c_str());
    }
    return 0;
}
