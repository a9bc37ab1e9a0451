// foundation.cpp - uses the foundation library alone.
#include <loam/string.h>

#include <cstring>

int main() {
    zString text("on air", 6);
    return std::strcmp(text.CString(), "on air");
}
