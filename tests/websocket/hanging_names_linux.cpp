// hanging_names_linux.cpp - loaded in front of the system's own library: a look-up of a name that
// never comes to an end. It makes the file that HANGING_NAMES names, so that a test knows.
#include <netdb.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char*, const char*,
                                                                  const addrinfo*, addrinfo**) {
    std::ofstream(std::getenv("HANGING_NAMES")).put('\n');
    while (true) ::pause();
}
