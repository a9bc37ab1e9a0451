// host/output/output_file.h - what the writers ask of the files that they write.
#pragma once

#include <optional>
#include <string>

#include "host/system/outcome.h"

namespace pennywort::host {

// Whether a file of that name can be written, so that its user is told before anything begins. What
// is there stays as it is; what is no plain file, such as a named pipe or a device, is not touched.
outcome can_be_written(const std::string& path);

// A file that is made beside the one whose place it takes once it is whole: until then what is
// there stays as it is, whatever becomes of the program.
struct replacement {
    std::string part;   // what is written
    std::string place;  // the file itself, behind all links
};

// Nothing where the file has to be written as it stands: it is no plain one, it is one that the
// program has open (/dev/stdout), or its folder takes no other.
std::optional<replacement> replacement_of(const std::string& path);

// The part takes its place, with the rights of the file that was there.
outcome put_in_place(const replacement& made);

// Whether both names are of one file, there or not: "f.mov" and "./f.mov", a link and what it leads
// to, two links to one file.
bool are_one_file(const std::string& one, const std::string& other);

}  // namespace pennywort::host
