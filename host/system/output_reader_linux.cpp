// host/system/output_reader_linux.cpp - Linux half of host/system/output_reader.h. Windows half:
// host/system/output_reader_win.cpp.
#include "host/system/output_reader.h"

#include <poll.h>
#include <sys/stat.h>

namespace pennywort::host {

namespace {

// A terminal that is lost tells the same by poll; interrupt_watch knows what to make of that.
bool may_lose_its_reader(int descriptor) {
    struct stat what {};
    if (::fstat(descriptor, &what) != 0) return false;
    return S_ISFIFO(what.st_mode) || S_ISSOCK(what.st_mode);
}

}  // namespace

// A pipe without a reader has an error, a pair of sockets hangs up.
bool has_reader(std::FILE* output) {
    pollfd one{::fileno(output), 0, 0};
    if (!may_lose_its_reader(one.fd) || ::poll(&one, 1, 0) != 1) return true;
    return (one.revents & (POLLERR | POLLHUP)) == 0;
}

}  // namespace pennywort::host
