// loam/library.cpp - the parts of zLibrary that no system does differently. Twins of the rest:
// library_linux.cpp, library_win.cpp.
#include "loam/library.h"

zLibrary::zLibrary() = default;
zLibrary::~zLibrary() = default;
