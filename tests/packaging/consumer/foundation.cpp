// foundation.cpp - uses the foundation library alone.
#include <cstring>
// First, since some C libraries make macros of names that the library's classes have.

#include <loam/string.h>

int main() {
    const zString text("on air", 6);
    return std::strcmp(text.CString(), "on air") | zString::strncasecmp("ON AIR", "on air", 6);
}
