// host/system/child_process_win.cpp - Windows half of host/system/child_process.h. Linux half:
// host/system/child_process_linux.cpp.
//
// The pipes are named ones, since the system's anonymous ones know no wait with an end.
#include "host/system/child_process.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <optional>
#include <thread>
#include <utility>

#include "host/system/last_line.h"
#include "host/system/program_search.h"
#include "loam/id_generator.h"
#include "loam/wide_text.h"

namespace pennywort::host {

namespace {

using milliseconds = std::chrono::milliseconds;

constexpr DWORD k_pipe_bytes = 1 << 20;  // fewer switches between the two processes per frame
constexpr std::size_t k_largest_write = 1 << 24;

std::string system_text(DWORD error) {
    wchar_t text[512];
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                       0, text, static_cast<DWORD>(std::size(text)), nullptr);
    std::wstring_view words(text, length);
    while (!words.empty() && (words.back() <= L' ' || words.back() == L'.')) words.remove_suffix(1);
    return words.empty() ? "error " + std::to_string(error) : loam::utf8_text(words);
}

outcome system_failure(const std::string& doing, DWORD error) {
    return outcome::failed(doing + ": " + system_text(error));
}

class handle {
public:
    handle() = default;
    handle(handle&& other) noexcept : m_value(std::exchange(other.m_value, nullptr)) {}
    handle& operator=(handle&& other) noexcept {
        reset(std::exchange(other.m_value, nullptr));
        return *this;
    }
    ~handle() { reset(); }
    HANDLE get() const { return m_value; }
    explicit operator bool() const { return m_value != nullptr; }
    void reset(HANDLE value = nullptr) {
        if (m_value != nullptr) CloseHandle(m_value);
        m_value = value == INVALID_HANDLE_VALUE ? nullptr : value;
    }

private:
    HANDLE m_value = nullptr;
};

SECURITY_ATTRIBUTES inheritable() { return {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE}; }

// What a child writes there is gone. Returns the system's error.
DWORD open_nowhere(handle& nowhere) {
    SECURITY_ATTRIBUTES rights = inheritable();
    nowhere.reset(CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &rights,
                              OPEN_EXISTING, 0, nullptr));
    return nowhere ? ERROR_SUCCESS : GetLastError();
}

struct pipe_ends {
    handle ours;
    handle childs;

    // We write or read without waiting, the child waits as usual. `direction` is ours. Returns the
    // system's error.
    DWORD open(DWORD direction) {
        zString id;
        const std::wstring name =
            L"\\\\.\\pipe\\pennywort-" + loam::wide_text(zIDGenerator::GenerateUUID(id));
        const DWORD mode = direction | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE;
        ours.reset(CreateNamedPipeW(name.c_str(), mode,
                                    PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1,
                                    k_pipe_bytes, k_pipe_bytes, 0, nullptr));
        if (!ours) return GetLastError();
        const DWORD access = direction == PIPE_ACCESS_OUTBOUND ? GENERIC_READ : GENERIC_WRITE;
        SECURITY_ATTRIBUTES rights = inheritable();
        childs.reset(CreateFileW(name.c_str(), access, 0, &rights, OPEN_EXISTING, 0, nullptr));
        return childs ? ERROR_SUCCESS : GetLastError();
    }
};

// One argument as the C library of the other program takes it apart again: backslashes count only
// where a quote follows.
std::wstring quoted(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos) {
        return argument;
    }
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"') text.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        text.push_back(c);
    }
    text.append(backslashes, L'\\');
    return text + L"\"";
}

std::wstring command_line(const std::vector<std::string>& command) {
    std::wstring line;
    for (const auto& argument : command) {
        line += (line.empty() ? L"" : L" ") + quoted(loam::wide_text(argument));
    }
    return line;
}

// Names the three handles that the child gets: it must not keep any other one of ours open, such as
// the pipe of the next child.
class startup {
public:
    startup(HANDLE input, HANDLE output, HANDLE errors) : m_handles{input, output, errors} {
        m_info.StartupInfo.cb = sizeof m_info;
        m_info.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        m_info.StartupInfo.hStdInput = input;
        m_info.StartupInfo.hStdOutput = output;
        m_info.StartupInfo.hStdError = errors;
    }
    ~startup() {
        if (m_info.lpAttributeList != nullptr) {
            DeleteProcThreadAttributeList(m_info.lpAttributeList);
        }
    }
    startup(const startup&) = delete;
    startup& operator=(const startup&) = delete;

    // Before run. Returns the system's error.
    DWORD prepare() {
        SIZE_T size = 0;
        // The first call only tells the size, and counts as a failure.
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_storage.resize(size);
        const auto list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_storage.data());
        if (!InitializeProcThreadAttributeList(list, 1, 0, &size)) return GetLastError();
        m_info.lpAttributeList = list;
        if (!UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(),
                                       sizeof m_handles, nullptr, nullptr)) {
            return GetLastError();
        }
        return ERROR_SUCCESS;
    }

    // A console of its own, that nobody sees: what is typed at ours does not reach it. Returns the
    // system's error.
    DWORD run(handle& child, HANDLE job, const std::wstring& program, std::wstring line) {
        constexpr DWORD k_flags =
            CREATE_NO_WINDOW | CREATE_SUSPENDED | EXTENDED_STARTUPINFO_PRESENT;
        // Work that gives way to the page makes what it starts give way too.
        const bool in_background = GetThreadPriority(GetCurrentThread()) < THREAD_PRIORITY_NORMAL;
        const DWORD priority = in_background ? BELOW_NORMAL_PRIORITY_CLASS : 0;
        PROCESS_INFORMATION made{};
        if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                            k_flags | priority, nullptr, nullptr, &m_info.StartupInfo, &made)) {
            return GetLastError();
        }
        child.reset(made.hProcess);
        handle thread;
        thread.reset(made.hThread);
        // Before it runs, or what it starts first would not be in it. A system that refuses it the
        // job still lets it be ended alone, as end_now does.
        AssignProcessToJobObject(job, made.hProcess);
        if (ResumeThread(made.hThread) != static_cast<DWORD>(-1)) return ERROR_SUCCESS;
        const DWORD error = GetLastError();
        TerminateProcess(made.hProcess, 1);
        child.reset();
        return error;
    }

private:
    std::array<HANDLE, 3> m_handles;
    std::vector<unsigned char> m_storage;
    STARTUPINFOEXW m_info{};
};

// None where the other side has closed it.
DWORD bytes_in(HANDLE pipe) {
    DWORD count = 0;
    return PeekNamedPipe(pipe, nullptr, 0, nullptr, &count, nullptr) ? count : 0;
}

// Until the other side closes, or the child has ended and what it said has been read: what it has
// started may outlive it, keep the other side open for ever, and go on saying things.
void read_lines(HANDLE from, HANDLE arrived, HANDLE child, last_line& lines) {
    char some[4096];
    const std::array<HANDLE, 2> news{arrived, child};
    std::optional<DWORD> rest;  // of what the pipe held when the child had ended
    while (!rest || *rest > 0) {
        OVERLAPPED call{};
        call.hEvent = arrived;
        if (!ReadFile(from, some, sizeof some, nullptr, &call) &&
            GetLastError() != ERROR_IO_PENDING) {
            return;
        }
        if (WaitForMultipleObjects(2, news.data(), FALSE, INFINITE) != WAIT_OBJECT_0) {
            CancelIoEx(from, &call);
        }
        DWORD count = 0;
        if (!GetOverlappedResult(from, &call, &count, TRUE) || count == 0) return;
        lines.add({some, count});
        if (rest) {
            *rest -= std::min(*rest, count);
        } else if (WaitForSingleObject(child, 0) == WAIT_OBJECT_0) {
            rest = bytes_in(from);
        }
    }
}

DWORD as_wait(milliseconds patience) {
    return static_cast<DWORD>(std::clamp<long long>(patience.count(), 0, INFINITE - 1));
}

bool is_program(const std::string& path) {
    DWORD kind = 0;
    return GetBinaryTypeW(loam::wide_text(path).c_str(), &kind) != 0;
}

std::string search_path() {
    std::wstring value;
    DWORD length = GetEnvironmentVariableW(L"PATH", nullptr, 0);
    while (length > value.size()) {
        value.resize(length);
        length = GetEnvironmentVariableW(L"PATH", value.data(), length);
    }
    return loam::utf8_text({value.data(), length});
}

}  // namespace

std::string find_program(const std::string& name) {
    return find_in_folders(search_path(), ';', [&](const std::string& folder) {
        if (folder.empty()) return std::string();
        for (const char* ending : {".exe", ""}) {
            std::string path = folder + "\\" + name + ending;
            if (is_program(path)) return path;
        }
        return std::string();
    });
}

struct child_process::native {
    handle child;
    handle job;  // the child and what it has started
    handle input;
    handle errors;
    handle written;  // set by the system when a write is done
    handle arrived;  // and when a read is
    last_line lines;
    std::thread reader;

    // Returns the system's error.
    DWORD make_objects() {
        written.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!written) return GetLastError();
        arrived.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!arrived) return GetLastError();
        job.reset(CreateJobObjectW(nullptr, nullptr));
        return job ? ERROR_SUCCESS : GetLastError();
    }

    void end_now() {
        if (!child) return;
        TerminateJobObject(job.get(), 1);
        TerminateProcess(child.get(), 1);  // a system may have refused it the job
        WaitForSingleObject(child.get(), INFINITE);
    }
    void end_reader() {
        if (reader.joinable()) reader.join();
        child.reset();  // the reader waited for it
    }

    // One write; `taken` says how much of it the pipe took.
    write_result write_some(const char* bytes, DWORD count, DWORD wait, DWORD& taken) {
        OVERLAPPED call{};
        call.hEvent = written.get();
        if (!WriteFile(input.get(), bytes, count, nullptr, &call)) {
            if (GetLastError() != ERROR_IO_PENDING) return write_result::closed;
        }
        const bool in_time = WaitForSingleObject(written.get(), wait) == WAIT_OBJECT_0;
        // The buffer is the caller's: a write that is late must be over before he has it back.
        if (!in_time) CancelIoEx(input.get(), &call);
        if (GetOverlappedResult(input.get(), &call, &taken, TRUE)) return write_result::written;
        return in_time ? write_result::closed : write_result::stalled;
    }
};

child_process::child_process() : m_native(new native) {}

child_process::~child_process() {
    m_native->end_now();
    m_native->end_reader();
}

outcome child_process::start(const std::vector<std::string>& command) {
    pipe_ends input;
    pipe_ends errors;
    handle nowhere;
    DWORD error = m_native->make_objects();
    if (error == ERROR_SUCCESS) error = open_nowhere(nowhere);
    if (error == ERROR_SUCCESS) error = input.open(PIPE_ACCESS_OUTBOUND);
    if (error == ERROR_SUCCESS) error = errors.open(PIPE_ACCESS_INBOUND);
    if (error != ERROR_SUCCESS) return system_failure("cannot make a pipe", error);
    startup plan(input.childs.get(), nowhere.get(), errors.childs.get());
    error = plan.prepare();
    if (error == ERROR_SUCCESS) {
        error = plan.run(m_native->child, m_native->job.get(), loam::wide_text(command[0]),
                         command_line(command));
    }
    if (error != ERROR_SUCCESS) return system_failure("cannot start " + command[0], error);
    m_native->input = std::move(input.ours);
    m_native->errors = std::move(errors.ours);
    m_native->reader = std::thread(read_lines, m_native->errors.get(), m_native->arrived.get(),
                                   m_native->child.get(), std::ref(m_native->lines));
    return outcome::fine();
}

child_process::write_result child_process::write(const void* bytes, std::size_t count,
                                                 milliseconds patience) {
    const char* rest = static_cast<const char*>(bytes);
    while (count > 0) {
        const auto some = static_cast<DWORD>(std::min(count, k_largest_write));
        DWORD taken = 0;
        const auto result = m_native->write_some(rest, some, as_wait(patience), taken);
        // A write that was cut off after it had made some way is no stall.
        if (result != write_result::written && taken == 0) return result;
        rest += taken;
        count -= taken;
    }
    return write_result::written;
}

child_process::exit_report child_process::finish(milliseconds patience) {
    exit_report report;
    m_native->input.reset();
    DWORD status = 0;
    report.ended = m_native->child &&
                   WaitForSingleObject(m_native->child.get(), as_wait(patience)) == WAIT_OBJECT_0;
    if (report.ended && GetExitCodeProcess(m_native->child.get(), &status)) {
        report.status = static_cast<int>(status);
    }
    if (!report.ended) m_native->end_now();
    m_native->end_reader();
    report.last_line = m_native->lines.text();
    return report;
}

}  // namespace pennywort::host
