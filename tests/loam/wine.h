// wine.h - whether a test runs under Wine instead of Windows itself, for what Wine does otherwise.
// Twins: wine_linux.cpp, wine_win.cpp.
#pragma once

bool runs_under_wine();
