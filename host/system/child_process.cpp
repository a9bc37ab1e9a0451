// host/system/child_process.cpp - see the header for the contract. What differs from system to
// system is in running_child.h.
#include "host/system/child_process.h"

#include <system_error>
#include <thread>
#include <utility>

#include "core/run/deadline.h"
#include "host/system/last_line.h"
#include "host/system/running_child.h"

namespace pennywort::host {

struct child_process::state {
    running_child child;
    last_line lines;
    std::thread reader;
    bool is_running = false;  // it was started, and its end has not been waited for

    // A program that hangs may still look twice a second whether it goes on, and say that it is
    // there; that takes it a ten thousandth of the time.
    bool has_worked(std::chrono::microseconds& before, std::chrono::microseconds in) const {
        constexpr int k_least_share = 2000;
        const auto now = child.work_done();
        return now - std::exchange(before, now) > in / k_least_share;
    }

    bool waits_while_it_works(std::chrono::milliseconds longest_rest) const {
        auto before = child.work_done();
        while (!child.wait_for_end(longest_rest)) {
            if (!has_worked(before, longest_rest)) return false;
        }
        return true;
    }

    // What it has done is asked for only where it keeps us waiting.
    write_result write_while_it_works(const char* bytes, std::size_t count,
                                      std::chrono::milliseconds longest_rest, std::size_t& taken) {
        const auto first = longest_rest / 10;
        auto result = child.write_some(bytes, count, first, taken);
        if (!takes_nothing(result, taken)) return result;
        auto before = child.work_done();
        do {
            result = child.write_some(bytes, count, longest_rest - first, taken);
        } while (takes_nothing(result, taken) && has_worked(before, longest_rest - first));
        return result;
    }
    // A write that was cut off after the pipe had taken some bytes is no stall.
    static bool takes_nothing(write_result result, std::size_t taken) {
        return result == write_result::stalled && taken == 0;
    }

    void end_now() {
        if (is_running) child.end_now();
        is_running = false;
    }
    void end_reader() {
        if (reader.joinable()) reader.join();
    }
};

child_process::child_process() : m_state(new state) {}

child_process::~child_process() {
    m_state->end_now();
    m_state->end_reader();
}

outcome child_process::start(const std::vector<std::string>& command, const std::string& report) {
    m_state->lines.expect_reports(report);
    auto launched = m_state->child.launch(command);
    if (!launched.ok()) return launched;
    m_state->is_running = true;
    try {
        m_state->reader = std::thread([state = m_state.get()] {  //
            state->child.read_errors(state->lines);
        });
    } catch (const std::system_error& error) {
        // A program that nobody listens to stops as soon as its pipe is full.
        m_state->end_now();
        return outcome::failed("cannot listen to " + command[0] + ": " + error.code().message());
    }
    return launched;
}

child_process::write_result child_process::write(const void* bytes, std::size_t count,
                                                 std::chrono::milliseconds longest_rest) {
    const char* rest = static_cast<const char*>(bytes);
    while (count > 0) {
        std::size_t taken = 0;
        const auto result = m_state->write_while_it_works(rest, count, longest_rest, taken);
        if (result != write_result::written && taken == 0) return result;
        rest += taken;
        count -= taken;
    }
    return write_result::written;
}

child_process::write_result child_process::write_within(const void* bytes, std::size_t count,
                                                        std::chrono::milliseconds patience) {
    const run::deadline last(patience);
    const char* rest = static_cast<const char*>(bytes);
    while (count > 0) {
        std::size_t taken = 0;
        const std::chrono::milliseconds left(last.left_ms());
        const auto result = m_state->child.write_some(rest, count, left, taken);
        if (result != write_result::written && (taken == 0 || last.has_passed())) return result;
        rest += taken;
        count -= taken;
    }
    return write_result::written;
}

child_process::exit_report child_process::finish(std::chrono::milliseconds patience) {
    m_state->child.close_input();
    return report_of_end(m_state->is_running && m_state->child.wait_for_end(patience));
}

child_process::exit_report child_process::finish_at_its_pace(
    std::chrono::milliseconds longest_rest) {
    m_state->child.close_input();
    return report_of_end(m_state->is_running && m_state->waits_while_it_works(longest_rest));
}

child_process::exit_report child_process::report_of_end(bool has_ended) {
    exit_report report;
    report.ended = has_ended;
    if (report.ended) {
        report.status = m_state->child.take_status();
        m_state->is_running = false;
    }
    m_state->end_now();
    m_state->end_reader();
    report.first_line = m_state->lines.first();
    report.last_line = m_state->lines.text();
    report.reported = m_state->lines.reported();
    return report;
}

}  // namespace pennywort::host
