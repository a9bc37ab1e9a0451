// host/output/film_check.h - whether the file of a film is whole, by its own account of its sizes.
#pragma once

#include <cstdint>
#include <istream>

#include "host/output/output_target.h"

namespace pennywort::host {

// A film's outer parts say how long they are. Those of a film that lost its end go beyond the
// `size` bytes that there are, or lack the part without which no player can read the rest. GIF and
// JPEG have a mark at their end. `kind` is one that ffmpeg makes.
bool is_whole_film(output_kind kind, std::istream& film, std::uint64_t size);

}  // namespace pennywort::host
