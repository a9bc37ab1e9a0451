// descriptors_linux.cpp - Linux half of descriptors.h. Windows half: descriptors_win.cpp.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/httpserver/descriptors.h"

namespace {

constexpr const char* k_folder = "/proc/self/fd";

std::size_t highest_descriptor() {
    std::size_t highest = 0;
    for (const auto& entry : std::filesystem::directory_iterator(k_folder)) {
        highest = std::max<std::size_t>(highest, std::stoul(entry.path().filename()));
    }
    return highest;
}

void set_bound(std::size_t bound) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = bound;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

std::size_t open_descriptors() {
    const std::filesystem::directory_iterator entries(k_folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

bool make_room_for_descriptors(std::size_t wanted) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= wanted) return true;
    if (limit.rlim_max < wanted) return false;
    set_bound(wanted);
    return true;
}

// Numbers below the bound that are free now are taken as well.
no_more_descriptors::no_more_descriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    m_bound = limit.rlim_cur;
    set_bound(highest_descriptor() + 1);
    for (int filler = dup(0); filler >= 0; filler = dup(0)) m_fillers.push_back(filler);
}

no_more_descriptors::~no_more_descriptors() {
    set_bound(m_bound);
    for (const int filler : m_fillers) close(filler);
}
