// host/system/standard_input_win.cpp - Windows half of host/system/standard_input.h. Linux half:
// standard_input_linux.cpp.
#include "host/system/standard_input.h"

#include <fcntl.h>
#include <io.h>

namespace pennywort::host {

// In text mode the system would drop bytes before line feeds and end at a Ctrl-Z. Where it refuses,
// there is no standard input, and reading tells so.
std::FILE* standard_input() {
    static_cast<void>(_setmode(_fileno(stdin), _O_BINARY));
    return stdin;
}

}  // namespace pennywort::host
