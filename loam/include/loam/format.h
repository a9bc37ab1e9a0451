// loam/format.h - {fmt}, the formatting facility, for whoever uses this library: fmt::format,
// fmt::format_to and the rest, by its own headers. Whoever includes this file needs those (Debian:
// libfmt-dev); no other public header does. Nothing is to be linked: all of it is in the headers.
//
//     zString text;
//     text = fmt::format("code:{} clean:{}", code, is_clean);
//
// A written-out format that does not fit its arguments does not compile; one that is made at run
// time throws fmt::format_error.
#pragma once

#ifndef FMT_HEADER_ONLY
#define FMT_HEADER_ONLY 1
#endif
#include <fmt/format.h>
