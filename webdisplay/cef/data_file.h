// data_file.h - whether a data file of the browser runtime is whole, as far as its own index tells.
//
// A copy that broke off, on a disk that was full for instance, ends the process that starts the
// runtime with it.
#pragma once

#include <string>

namespace pennywort::cef {

// A pack of texts and pictures (.pak). False also for what is none, or cannot be read.
bool is_whole_pack(const std::string& path);

// The tables of Unicode (icudtl.dat).
bool is_whole_unicode_data(const std::string& path);

}  // namespace pennywort::cef
