// wine_linux.cpp - Linux half of wine.h. Windows half: wine_win.cpp.
#include "tests/loam/wine.h"

bool runs_under_wine() { return false; }
