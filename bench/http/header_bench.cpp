// header_bench.cpp - what it costs to take a header block apart, in nanoseconds a header.
#include <benchmark/benchmark.h>

#include <string>

#include "loam/record.h"
#include "utils.h"

namespace {

// As a browser sends it.
const std::string& browser_block() {
    static const std::string block =
        "Host: 127.0.0.1:8080\r\nConnection: keep-alive\r\nCache-Control: max-age=0\r\n"
        "Upgrade-Insecure-Requests: 1\r\nUser-Agent: Mozilla/5.0 (X11; Linux x86_64) "
        "AppleWebKit/537.36 (KHTML, like Gecko) Chrome/146.0.0.0 Safari/537.36\r\n"
        "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,*/*;q=0.8\r\n"
        "Sec-Fetch-Site: none\r\nSec-Fetch-Mode: navigate\r\nSec-Fetch-Dest: document\r\n"
        "Accept-Encoding: gzip, deflate, br\r\nAccept-Language: en-GB,en;q=0.9\r\n\r\n";
    return block;
}
constexpr double k_browser_headers = 11;

std::string block_of(int headers) {
    std::string block;
    for (int i = 0; i < headers; ++i) {
        block += "X-Header-" + std::to_string(i) + ": value number " + std::to_string(i) + "\r\n";
    }
    return block + "\r\n";
}

void parse(benchmark::State& state, const std::string& block, double headers) {
    for (auto _ : state) {
        zRecord record;
        benchmark::DoNotOptimize(
            cUtils::HeaderParse(block.data(), static_cast<std::int32_t>(block.size()), record));
    }
    // Shown in seconds: "62n" is 62 nanoseconds a header.
    state.counters["per_header"] = benchmark::Counter(
        headers, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(block.size()));
}

void Browser(benchmark::State& state) { parse(state, browser_block(), k_browser_headers); }
BENCHMARK(Browser);

void Many(benchmark::State& state) {
    const auto headers = static_cast<int>(state.range(0));
    parse(state, block_of(headers), headers);
}
BENCHMARK(Many)->Arg(4)->Arg(12)->Arg(100);

}  // namespace

BENCHMARK_MAIN();
