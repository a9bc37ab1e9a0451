// measured.h - the file that a contender works on, and how fast it is done with it.
#pragma once

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

inline std::string file_bytes(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Runs `work` for about a second, at least three times, and prints "NAME MB/s" of its quickest run;
// `work` returns the bytes that it was done with, 0 for a failure.
template <typename function>
void measure(const char* name, function work) {
    using clock = std::chrono::steady_clock;
    const auto end = clock::now() + std::chrono::seconds(1);
    double best = 0;
    for (int round = 0; round < 3 || clock::now() < end; ++round) {
        const auto start = clock::now();
        const std::size_t bytes = work();
        const std::chrono::duration<double> took = clock::now() - start;
        if (bytes == 0) break;
        const double rate = static_cast<double>(bytes) / took.count() / 1e6;
        if (rate > best) best = rate;
    }
    std::printf("%s %.1f\n", name, best);
}
