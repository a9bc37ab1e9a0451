// firewall.h - asks the system's packet filter whether others can reach a TCP port of this program.
//
// Threads: the questions may be asked on any thread, several at once. On Windows the asking thread
// needs COM, so a host pairs Startup and Shutdown on it; the module's start does so for its own
// thread. Nothing is changed in the firewall, and the user is never asked.
#pragma once

#include "loam/string.h"
#include "pennywort_export.h"

// What a firewall does with connections to a port.
enum class cFirewallAnswer {
    Open,     // lets some or all of them in
    Blocked,  // lets none in
    Unknown,  // could not be asked
};

// The protocol by which others come. Any of them: one that leads in is enough.
enum class cFirewallFamily { Any, IPv4, IPv6 };

class PENNYWORT_API cFirewall {
public:
    // Prepares the calling thread: on Windows its COM, elsewhere nothing. Where COM is there in
    // another way already, that is traced and the question works all the same.
    static void Startup();
    // Undoes one Startup of the calling thread.
    static void Shutdown();

    // Whether no new TCP connection from another machine reaches this program on `port`. False
    // whenever the system cannot tell, and where a rule lets only some addresses in, so that no
    // host is kept from starting by a doubt; why it could not tell is traced.
    static bool IsTCPPortFirewalled(long port);

    // The same question with the whole answer. `why` becomes one line without a full stop: what
    // blocks the port, or why nothing could be learned; "" for an open one.
    static cFirewallAnswer QueryTCPPort(long port, zString& why);
    // The same for connections over one protocol alone: a program that listens on an IPv4 address
    // has nothing of it when others come in over IPv6.
    static cFirewallAnswer QueryTCPPort(long port, cFirewallFamily family, zString& why);
};
