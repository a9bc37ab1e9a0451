// system_loop_linux.cpp - Linux half of system_loop.h: GLib's main loop on the default context.
#include "bench/system_loop.h"

#include <glib.h>

namespace pennywort::bench {

namespace {

gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
}

}  // namespace

void run_system_loop(double seconds) {
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_timeout_add(static_cast<guint>(seconds * 1000), quit, loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}

}  // namespace pennywort::bench
