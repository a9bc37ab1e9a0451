// fuzzer.cpp - has clang's libFuzzer run a fuzz target: the one that the program's own name begins
// with, since libFuzzer starts the program again with its own arguments alone. usage: NAME_fuzz
// [FILE]
#include <string_view>

#include "fuzz/fuzz.h"

namespace {

const fuzz_target* g_target = nullptr;

std::string_view target_name(std::string_view program) {
    const std::string_view file = program.substr(program.rfind('/') + 1);
    return file.substr(0, file.rfind("_fuzz"));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** argv) {
    g_target = fuzz_target::named(target_name((*argv)[0]));
    require(g_target != nullptr, "the program has the name of a target: NAME_fuzz");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    g_target->look(data, size);
    return 0;
}
