// fault_cases.h - every rule of the protocol that a server can break.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"

// What a server may not do, and the code that it is told.
struct fault_case {
    const char* name;
    std::string bytes;
    int code;
};
inline void PrintTo(const fault_case& c, std::ostream* out) { *out << c.name; }

inline std::vector<fault_case> fault_cases() {
    using namespace frames;
    const std::string start = frame(k_text, "a");
    return {
        {"ReservedBit1", frame(k_final | 0x40 | k_text, "a"), 1002},
        {"ReservedBit2", frame(k_final | 0x20 | k_text, "a"), 1002},
        {"ReservedBit3", frame(k_final | 0x10 | k_text, "a"), 1002},
        {"ReservedDataOpcode", frame(k_final | 0x3, "a"), 1002},
        {"LastReservedDataOpcode", frame(k_final | 0x7, "a"), 1002},
        {"ReservedControlOpcode", frame(k_final | 0xB, "a"), 1002},
        {"LastReservedControlOpcode", frame(k_final | 0xF, "a"), 1002},
        {"Masked", frame(k_final | k_text, "a", 0x80), 1002},
        {"MaskedPing", frame(k_final | k_ping, "", 0x80), 1002},
        {"PingOf126Bytes", frame(k_final | k_ping, std::string(126, 'p')), 1002},
        {"PongOf126Bytes", frame(k_final | k_pong, std::string(126, 'p')), 1002},
        {"CloseOf126Bytes", frame(k_final | k_close, code_bytes(1000) + std::string(124, 'p')),
         1002},
        {"PingInPieces", frame(k_ping, "p"), 1002},
        {"CloseInPieces", frame(k_close, code_bytes(1000)), 1002},
        {"ContinuationWithoutStart", frame(k_final | k_continuation, "a"), 1002},
        {"TextWithinAMessage", start + text("b"), 1002},
        {"BinaryWithinAMessage", start + frame(k_final | k_binary, "b"), 1002},
        {"InvalidUtf8", text("a\xFF"), 1007},
        {"OverlongUtf8", text("\xC0\x80"), 1007},
        {"SurrogateUtf8", text("\xED\xA0\x80"), 1007},
        {"Utf8CutAtTheEnd", text("a\xC3"), 1007},
        {"Utf8BrokenBetweenFrames", frame(k_text, "a\xC3") + frame(k_final | k_continuation, "b"),
         1007},
        {"CloseOf1Byte", frame(k_final | k_close, "a"), 1002},
        {"CloseWithInvalidUtf8", frame(k_final | k_close, code_bytes(1000) + "\xFF"), 1002},
        {"LengthNotMinimal16", std::string("\x81\x7E\0\x01", 4) + "a", 1002},
        {"LengthNotMinimal64", std::string("\x81\x7F\0\0\0\0\0\0\0\x01", 10) + "a", 1002},
        {"LengthWithItsHighestBit", std::string("\x81\x7F\x80\0\0\0\0\0\0\x01", 10) + "a", 1009},
    };
}

// A server that is gone at a stage, before or after the upgrade.
struct loss_stage {
    scripted_peer::script what;
    bool is_upgraded;
};

inline std::vector<loss_stage> loss_stages() {
    return {
        {[](peer_connection& connection) { connection.reset(); }, false},
        {[](peer_connection& connection) {
             connection.receive_head();
             connection.reset();
         },
         false},
        {[](peer_connection& connection) {
             connection.receive_head();
             connection.send("HTTP/1.1 101 Yes\r\nUpgr");
         },
         false},
        {[](peer_connection& connection) {
             connection.accept();
             connection.reset();
         },
         true},
        {[](peer_connection& connection) { connection.accept(); }, true},
        {[](peer_connection& connection) {
             connection.accept();
             connection.send("\x81\x7E");
             connection.reset();
         },
         true},
        {[](peer_connection& connection) {
             connection.accept();
             connection.send(frames::frame(frames::k_text, "begun"));
         },
         true},
    };
}

// 1014 may be sent by now; Beast does not know it. Codes above 4999 it lets pass.
constexpr int k_codes_to_send[] = {1000, 1001, 1002, 1003, 1007, 1008, 1009,
                                   1010, 1011, 1012, 1013, 3000, 4999};
constexpr int k_codes_not_to_send[] = {0, 999, 1004, 1005, 1006, 1014, 1015, 1016, 2999};
constexpr int k_codes_beyond_all[] = {5000, 65535};
