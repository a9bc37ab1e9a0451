// helper_trial_win.cpp - Windows half of helper_trial.h. Linux half: helper_trial_linux.cpp.
#include "webdisplay/helper_trial.h"

#include <windows.h>
// After windows.h, whose types they need.
#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "core/limits.h"
#include "core/run/deadline.h"
#include "loam/wide_text.h"
#include "webdisplay/cef/system_failure_win.h"

namespace pennywort::webdisplay {

namespace {

using cef::check;
using cef::trace_failure;

class owned_handle {
public:
    owned_handle() = default;
    owned_handle(const owned_handle&) = delete;
    owned_handle& operator=(const owned_handle&) = delete;
    ~owned_handle() { close(); }

    void close() {
        if (m_handle != nullptr) check(CloseHandle(m_handle) != 0, "CloseHandle");
        m_handle = nullptr;
    }
    HANDLE get() const { return m_handle; }
    HANDLE* out() { return &m_handle; }

private:
    HANDLE m_handle = nullptr;
};

// What a process has used of the system so far.
struct process_use {
    std::uint64_t time_of_threads = 0;
    DWORD page_faults = 0;
    friend bool operator==(const process_use&, const process_use&) = default;
};

std::uint64_t number_of(const FILETIME& time) {
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// 0 for a thread that has just ended.
std::uint64_t time_of_thread(DWORD id) {
    owned_handle thread;
    *thread.out() = OpenThread(THREAD_QUERY_INFORMATION, FALSE, id);
    FILETIME created{}, ended{}, in_system{}, in_program{};
    if (thread.get() == nullptr ||
        !GetThreadTimes(thread.get(), &created, &ended, &in_system, &in_program)) {
        return 0;
    }
    return number_of(in_system) + number_of(in_program);
}

// Thread by thread: asked about another process, Wine tells the times of the one that asks.
bool read_time_of_threads(DWORD process, std::uint64_t& time) {
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    check(list != INVALID_HANDLE_VALUE, "CreateToolhelp32Snapshot");
    if (list == INVALID_HANDLE_VALUE) return false;
    owned_handle closed;
    *closed.out() = list;
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    for (BOOL is_one = Thread32First(list, &thread); is_one; is_one = Thread32Next(list, &thread)) {
        if (thread.th32OwnerProcessID == process) time += time_of_thread(thread.th32ThreadID);
    }
    return true;
}

// False where the system does not say; then it cannot be told whether the process stands still.
bool read_use(HANDLE process, process_use& use) {
    PROCESS_MEMORY_COUNTERS memory{};
    memory.cb = sizeof memory;
    std::uint64_t time = 0;
    if (!read_time_of_threads(GetProcessId(process), time)) return false;
    if (!GetProcessMemoryInfo(process, &memory, sizeof memory)) return false;
    use = {time, memory.PageFaultCount};
    return true;
}

// The helper while it is tried.
class tried_helper {
public:
    explicit tried_helper(const std::string& path) {
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        owned_handle words_to_write;
        if (!CreatePipe(m_words_end.out(), words_to_write.out(), &inherited,
                        static_cast<DWORD>(k_max_helper_words)) ||
            !SetHandleInformation(m_words_end.get(), HANDLE_FLAG_INHERIT, 0)) {
            m_error = GetLastError();
            return;
        }
        m_error = start(loam::wide_text(path), words_to_write.get());
    }
    tried_helper(const tried_helper&) = delete;
    tried_helper& operator=(const tried_helper&) = delete;
    ~tried_helper() {
        if (m_error != 0 || m_has_ended) return;
        // It may have ended by itself since.
        if (TerminateProcess(m_process.get(), 1)) return;
        const DWORD error = GetLastError();
        if (error != ERROR_ACCESS_DENIED) trace_failure("TerminateProcess", error);
    }

    DWORD error() const { return m_error; }
    HANDLE process() const { return m_process.get(); }
    const std::string& words() const { return m_words; }

    bool ends_within(std::int32_t ms) {
        const DWORD end = WaitForSingleObject(m_process.get(), static_cast<DWORD>(ms));
        check(end != WAIT_FAILED, "WaitForSingleObject");
        m_has_ended = end == WAIT_OBJECT_0;
        read_words();
        return m_has_ended;
    }
    DWORD status() const {
        DWORD status = 0;
        const bool is_known = GetExitCodeProcess(m_process.get(), &status) != 0;
        check(is_known, "GetExitCodeProcess");
        return is_known ? status : 0;
    }

private:
    // Without a console, which would open on the screen. The program gets its words' pipe and
    // whatever else the host lets its children have, for the length of a trial.
    DWORD start(const std::wstring& program, HANDLE words) {
        std::wstring line = L'"' + program + L"\" " + loam::wide_text(k_self_check);
        STARTUPINFOW how{};
        how.cb = sizeof how;
        how.dwFlags = STARTF_USESTDHANDLES;
        how.hStdOutput = words;
        PROCESS_INFORMATION made{};
        if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                            nullptr, nullptr, &how, &made)) {
            return GetLastError();
        }
        *m_process.out() = made.hProcess;
        check(CloseHandle(made.hThread) != 0, "CloseHandle");
        return 0;
    }

    // Read to the end of what is there, so that a helper with much to say does not wait for us.
    void read_words() {
        std::array<char, k_max_helper_words> piece{};
        DWORD waiting = 0;
        DWORD size = 0;
        while (PeekNamedPipe(m_words_end.get(), nullptr, 0, nullptr, &waiting, nullptr) &&
               waiting > 0 &&
               ReadFile(m_words_end.get(), piece.data(),
                        std::min(waiting, static_cast<DWORD>(piece.size())), &size, nullptr)) {
            m_words.append(piece.data(),
                           std::min<std::size_t>(size, k_max_helper_words - m_words.size()));
        }
    }

    owned_handle m_words_end;
    owned_handle m_process;
    DWORD m_error = 0;
    bool m_has_ended = false;
    std::string m_words;
};

// The system and the C++ run time end a process with numbers whose highest digit is C or E. A
// program may end with any number, and a negative one begins with F.
bool is_crash(DWORD status) {
    const DWORD first_digit = status >> 28;
    return first_digit == 0xC || first_digit == 0xE;
}

helper_trial verdict_on(const tried_helper& helper) {
    const DWORD status = helper.status();
    if (!is_crash(status)) return verdict_on_words(helper.words());
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", status);
    return {helper_end::crashed, std::string("ended by the system with ") + text};
}

}  // namespace

helper_trial try_helper(const std::string& path) {
    constexpr std::int32_t k_step_ms = 10;
    tried_helper helper(path);
    if (helper.error() != 0)
        return {helper_end::refused, "error " + std::to_string(helper.error())};
    const run::deadline half(k_max_helper_trial / 2);
    const run::deadline end(k_max_helper_trial);
    process_use before, now;
    bool is_known = false;
    while (!end.has_passed()) {
        if (helper.ends_within(std::min(end.left_ms(), k_step_ms))) return verdict_on(helper);
        if (!is_known && half.has_passed()) is_known = read_use(helper.process(), before);
    }
    if (!is_known || !read_use(helper.process(), now) || before != now) return {};
    return {helper_end::hung, "it does not end"};
}

}  // namespace pennywort::webdisplay
