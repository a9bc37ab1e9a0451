// foundation.cpp - uses the foundation library alone, and the formatting that comes with it.
#include <cstring>
// First, since some C libraries make macros of names that the library's classes have.

#include <loam/format.h>
#include <loam/string.h>

int main() {
    zString text;
    text = fmt::format("{} {}", "on", "air");
    return std::strcmp(text.CString(), "on air") | zString::strncasecmp("ON AIR", "on air", 6);
}
