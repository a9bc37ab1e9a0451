// utf8.h - the one reader and writer of UTF-8; see loam/utf8.h for what each does. loam needs them
// too and may not include core, so that they stand there.
#pragma once

#include "loam/utf8.h"

namespace pennywort::text {

using loam::append_utf8;
using loam::first_character;
using loam::is_utf8;
using loam::k_replacement;
using loam::k_replacement_text;
using loam::utf8_piece;

}  // namespace pennywort::text
