// host/output/film_timecode.h - the time that a film's first frame is labelled with.
#pragma once

#include <string>
#include <string_view>

#include "host/output/frame_rate.h"

namespace pennywort::host {

// What is wrong with a text as "10:00:00:00" for a film of that rate, in one line; empty if nothing
// is. Before the frames stands ":" or, where two numbers of a minute are left out (29.97, 59.94 and
// 119.88 frames a second), ";".
std::string timecode_complaint(std::string_view text, const frame_rate& rate);

}  // namespace pennywort::host
