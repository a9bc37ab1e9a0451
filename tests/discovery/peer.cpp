// peer.cpp - a host's program for the other side of tests and measurements.
//
// peer publish TYPE PORT COUNT NAME [HEXTXT]   advertises; with a count above 1 NAME gets a number
// behind it peer watch TYPE plain|once                   a line for each service found or gone,
// with its TXT record Both write "ready" when they are under way, go on until they are ended, and
// stop when their standard input does. "publish" withdraws everything at a line "withdraw".
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include "bonjour.h"
#include "loam/message_loop.h"
#include "loam/observer.h"
#include "loam/record.h"

namespace {

constexpr std::uint64_t k_what = 0x77686174;

std::string unhexed(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

std::string hexed(const char* bytes, std::uint32_t length) {
    std::string hex;
    for (std::uint32_t i = 0; i < length; ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(bytes[i]));
        hex += pair;
    }
    return hex;
}

long long now_us() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void say(const std::string& line) { std::cout << now_us() << ' ' << line << std::endl; }

// "+ NAME HOST PORT key=HEX...", and "-".
std::string line_of(const zRecord& record) {
    std::string line = record.AsInt32(k_what, 0) == 0x63426A2B ? "+ " : "- ";
    line += record.AsString("name", "") + " " + record.AsString("host", "") + " " +
            std::to_string(record.AsInt32("port", 0));
    const zRecord* const items = record.Child(0);
    for (std::uint32_t i = 0; items != nullptr && i < items->VariableCount(); ++i) {
        std::uint32_t length = 0;
        const char* const value = items->AsText(items->VariableName(i), &length);
        line += std::string(" ") + items->VariableName(i) + "=" + hexed(value, length);
    }
    return line;
}

// Hands the lines of standard input to the loop, and its end.
void read_lines(const std::shared_ptr<zMessageLoop>& loop, std::function<void(std::string)> take) {
    std::thread([loop, take] {
        std::string line;
        while (std::getline(std::cin, line)) loop->Post([take, line] { take(line); });
        loop->RequestQuit();
    }).detach();
}

int publish(int argc, char** argv) {
    cBonjour bonjour;
    const std::string type = argv[2];
    const long port = std::atol(argv[3]);
    const int count = std::atoi(argv[4]);
    const std::string txt = argc > 6 ? unhexed(argv[6]) : "";
    say("begin");
    for (int i = 0; i < count; ++i) {
        const std::string name = count == 1 ? argv[5] : argv[5] + std::to_string(i);
        if (bonjour.Service_Advertise(name.c_str(), type.c_str(), port, txt.data(), txt.size())) {
            say("refused");
            return 1;
        }
    }
    say("ready");
    read_lines(zMessageLoop::Current(), [&](const std::string& line) {
        if (line != "withdraw") return;
        say("withdraw");
        bonjour.Service_Unregister(nullptr, 0);
        say("withdrawn");
    });
    zMessageLoop::Run();
    return 0;
}

int watch(char** argv) {
    cBonjour bonjour;
    const zObserverHandler handler(
        7, [](const zRecord& record, std::uint64_t) { say(line_of(record)); });
    const bool is_once = std::string(argv[3]) == "once";
    const long status =
        is_once ? bonjour.StartObservingOnce(7, argv[2], 0) : bonjour.StartObserving(7, argv[2], 0);
    if (status != 0) {
        say("refused");
        return 1;
    }
    say("ready");
    read_lines(zMessageLoop::Current(), [](const std::string&) {});
    zMessageLoop::Run();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "publish" && argc > 5) return publish(argc, argv);
    if (what == "watch" && argc > 3) return watch(argv);
    std::fputs("usage: peer publish TYPE PORT COUNT NAME [HEXTXT] | peer watch TYPE plain|once\n",
               stderr);
    return 2;
}
