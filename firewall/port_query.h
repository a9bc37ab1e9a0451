// port_query.h - what the system's firewall does with connections to a port of this program.
// Twins: port_query_win.cpp (the firewall manager), port_query_linux.cpp (the nftables rule set).
#pragma once

#include <string>

namespace pennywort::firewall {

enum class port_state { open, blocked, unknown };

enum class ip_family { any, ip4, ip6 };

struct port_answer {
    port_state state = port_state::unknown;
    std::string why;  // one line without a full stop; empty for an open port
};

// What a thread needs to ask, and its end; each start has one end on the same thread.
void start_thread();
void end_thread();

// Reports no failure but by its answer; may throw where memory runs out.
port_answer ask(long port, ip_family family);

}  // namespace pennywort::firewall
