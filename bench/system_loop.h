// system_loop.h - the loop of a host that knows nothing of zMessageLoop: the toolkit's own.
// Twin: system_loop_linux.cpp.
#pragma once

namespace pennywort::bench {

// Runs the loop that GTK, Qt and GStreamer hosts run, for so long.
void run_system_loop(double seconds);

}  // namespace pennywort::bench
