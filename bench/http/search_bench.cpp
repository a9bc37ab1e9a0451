// search_bench.cpp - bytes a second of the byte search beside the C library's and the standard
// library's, for a pattern at the end of a text.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>

#include "utils.h"

namespace {

constexpr std::size_t k_small = 64 * 1024;
constexpr std::size_t k_large = 16 * 1024 * 1024;

// 46 bytes, as long as the default delimiter with its line ends and a longer name.
std::string delimiter(std::size_t length) {
    std::string text = "\r\n--MimeBoundary_8923gr836bidfb3i_0123456789";
    while (text.size() < length) text += static_cast<char>('a' + text.size() % 26);
    return text.substr(0, length);
}

// 0: any bytes, as pictures have. 1: letters, as XML has. 2: one byte only.
std::string text_of(std::size_t size, std::int64_t kind) {
    constexpr std::string_view k_letters = "etaoin shrdlu<>/=\"cmfwyp\r\nvbgkjqxz";
    std::mt19937 random(1);
    std::string text(size, 'x');
    for (char& c : text) {
        if (kind == 0) c = static_cast<char>(random());
        if (kind == 1) c = k_letters[random() % k_letters.size()];
    }
    return text;
}

// What a searcher makes of its pattern it makes once, before the clock runs: that is what it is
// for.
template <typename searcher>
void run(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::string pattern = delimiter(static_cast<std::size_t>(state.range(2)));
    std::string text = text_of(size, state.range(1));
    text.replace(size - pattern.size(), pattern.size(), pattern);
    const searcher one(pattern);
    for (auto _ : state) {
        if (one.find(text) != size - pattern.size()) state.SkipWithError("not found where it is");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

class own_searcher {
public:
    explicit own_searcher(const std::string& pattern)
        : m_searcher(pattern.data(), static_cast<std::int32_t>(pattern.size())) {}
    std::size_t find(const std::string& text) const {
        return static_cast<std::size_t>(
            m_searcher.FindIn(text.data(), static_cast<std::int32_t>(text.size())));
    }

private:
    cBoyerMoore m_searcher;
};

class memmem_searcher {
public:
    explicit memmem_searcher(const std::string& pattern) : m_pattern(pattern) {}
    std::size_t find(const std::string& text) const {
        const void* found = memmem(text.data(), text.size(), m_pattern.data(), m_pattern.size());
        return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
    }

private:
    const std::string& m_pattern;
};

template <typename standard>
class standard_searcher {
public:
    explicit standard_searcher(const std::string& pattern)
        : m_searcher(pattern.begin(), pattern.end()) {}
    std::size_t find(const std::string& text) const {
        return static_cast<std::size_t>(std::search(text.begin(), text.end(), m_searcher) -
                                        text.begin());
    }

private:
    standard m_searcher;
};

void Own(benchmark::State& state) { run<own_searcher>(state); }

void Memmem(benchmark::State& state) { run<memmem_searcher>(state); }

void StdHorspool(benchmark::State& state) {
    run<standard_searcher<std::boyer_moore_horspool_searcher<std::string::const_iterator>>>(state);
}

void StdBoyerMoore(benchmark::State& state) {
    run<standard_searcher<std::boyer_moore_searcher<std::string::const_iterator>>>(state);
}

void sizes(benchmark::internal::Benchmark* one) {
    for (const std::int64_t length : {46, 8, 255}) {
        for (const std::int64_t kind : {0, 1, 2}) {
            one->Args({k_small, kind, length})->Args({k_large, kind, length});
        }
    }
}
BENCHMARK(Own)->Apply(sizes);
BENCHMARK(Memmem)->Apply(sizes);
BENCHMARK(StdHorspool)->Apply(sizes);
BENCHMARK(StdBoyerMoore)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
