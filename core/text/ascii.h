// ascii.h - the one set of byte classes and comparisons without regard to case; see loam/ascii.h
// for what each does. loam needs them too and may not include core, so that they stand there.
#pragma once

#include "loam/ascii.h"

namespace pennywort::text {

using loam::begins_ignoring_case;
using loam::equal_ignoring_case;
using loam::hex_value;
using loam::is_blank;
using loam::is_control;
using loam::is_digit;
using loam::is_letter;
using loam::is_space;
using loam::k_blank;
using loam::k_space;
using loam::lower;
using loam::trimmed;

}  // namespace pennywort::text
