// arguments.cpp - see the header for the contract.
#include "bench/arguments.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace pennywort::bench {

namespace {

[[noreturn]] void refuse(const char* usage) {
    std::fprintf(stderr, "usage: %s\n", usage);
    std::exit(2);
}

bool is_known(const std::string& name, const char* usage) {
    return name.starts_with("--") && std::strstr(usage, ("[" + name + " ").c_str()) != nullptr;
}

}  // namespace

arguments::arguments(int argc, char** argv, int plain, const char* usage) {
    if (argc < 1 + plain || (argc - 1 - plain) % 2 != 0) refuse(usage);
    for (int i = 0; i < plain; ++i) m_plain[i] = argv[1 + i];
    for (int i = 1 + plain; i < argc; i += 2) {
        if (!is_known(argv[i], usage)) refuse(usage);
        m_named[argv[i]] = argv[i + 1];
    }
}

std::string arguments::text(const std::string& name, const std::string& otherwise) const {
    const auto found = m_named.find(name);
    return found == m_named.end() ? otherwise : found->second;
}

double arguments::number(const std::string& name, double otherwise) const {
    const auto found = m_named.find(name);
    return found == m_named.end() ? otherwise : std::atof(found->second.c_str());
}

int arguments::whole(const std::string& name, int otherwise) const {
    return static_cast<int>(number(name, otherwise));
}

}  // namespace pennywort::bench
