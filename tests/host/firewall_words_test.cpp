// tests/host/firewall_words_test.cpp - what the program says of the firewall, and how it ends.
#include "host/firewall/firewall_words.h"

#include <gtest/gtest.h>

#include "host/app/command_line.h"

namespace pennywort::host {
namespace {

const port_report k_open{8080, cFirewallAnswer::Open, ""};
const port_report k_blocked{8080, cFirewallAnswer::Blocked, "chain c of table inet t drops \"it\""};
const port_report k_unknown{8080, cFirewallAnswer::Unknown, "no right"};

TEST(FirewallWords, SayWhatIsKnown) {
    EXPECT_EQ(words_for(k_open), "port 8080 is not blocked");
    EXPECT_EQ(words_for(k_blocked), "port 8080 is blocked: chain c of table inet t drops \"it\"");
    EXPECT_EQ(words_for(k_unknown), "it cannot be told whether port 8080 is blocked: no right");
}

TEST(FirewallWords, AreJsonOnRequest) {
    EXPECT_EQ(json_line(k_open), R"({"port":8080,"state":"open","why":""})");
    EXPECT_EQ(json_line(k_blocked),
              R"({"port":8080,"state":"blocked","why":"chain c of table inet t drops \"it\""})");
    EXPECT_EQ(json_line(k_unknown), R"({"port":8080,"state":"unknown","why":"no right"})");
}

TEST(FirewallWords, HaveAnExitStatusEach) {
    EXPECT_EQ(exit_status_of(k_open), 0);
    EXPECT_EQ(exit_status_of(k_blocked), 3);
    EXPECT_EQ(exit_status_of(k_unknown), 1);
}

TEST(FirewallWords, WarnWhereOthersAreMeantToComeIn) {
    const std::string warning =
        "others cannot come in: port 8080 is blocked: chain c of table inet t drops \"it\"";
    EXPECT_EQ(listening_warning("0.0.0.0", k_blocked), warning);
    EXPECT_EQ(listening_warning("192.168.1.5", k_blocked), warning);
    EXPECT_EQ(listening_warning("::", k_blocked), warning);
    EXPECT_EQ(listening_warning("127.0.0.1", k_blocked), "");
    EXPECT_EQ(listening_warning("::1", k_blocked), "");
    EXPECT_EQ(listening_warning("0.0.0.0", k_open), "");
    EXPECT_EQ(listening_warning("0.0.0.0", k_unknown), "");
}

TEST(FirewallWords, AskAboutTheRightPort) { EXPECT_EQ(ask_about_port(8080).port, 8080); }

struct refused_case {
    const char* port;
    const char* words;
};
constexpr refused_case k_refused[] = {
    {"0", "0 is not a port from 1 to 65535"},
    {"65536", "65536 is not a port from 1 to 65535"},
    {"http", "http is not a port from 1 to 65535"},
    {"80x", "80x is not a port from 1 to 65535"},
};

TEST(FirewallCommand, RefusesWhatIsNoPort) {
    for (const refused_case& c : k_refused) {
        const command_line line = parse_command_line({"firewall", c.port});
        EXPECT_EQ(line.what, command_line::verdict::refuse);
        EXPECT_EQ(line.text, c.words);
    }
    EXPECT_EQ(parse_command_line({"firewall"}).what, command_line::verdict::refuse);
    EXPECT_EQ(parse_command_line({"firewall", "65535", "--json"}).what, command_line::verdict::run);
}

}  // namespace
}  // namespace pennywort::host
