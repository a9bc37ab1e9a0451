// host/fetch/fetch_progress.h - one line of how far a download has come.
#pragma once

#include <cstdint>
#include <string>

namespace pennywort::host {

// "12.3 MB", in steps of 1000.
std::string byte_count(std::uint64_t bytes);

// At most `columns` characters: a bar, the part, the rate and the time left where the length is
// known (`total` above 0), bytes and rate otherwise.
std::string fetch_line(std::uint64_t received, std::uint64_t total, double seconds, int columns);

}  // namespace pennywort::host
