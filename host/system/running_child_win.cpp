// host/system/running_child_win.cpp - Windows half of host/system/running_child.h. Linux half:
// host/system/running_child_linux.cpp.
//
// The pipes are named ones, since the system's anonymous ones know no wait with an end.
#include "host/system/running_child.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

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
        const bool is_in_background =
            GetThreadPriority(GetCurrentThread()) < THREAD_PRIORITY_NORMAL;
        const DWORD priority = is_in_background ? BELOW_NORMAL_PRIORITY_CLASS : 0;
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

DWORD as_wait(milliseconds patience) {
    return static_cast<DWORD>(std::clamp<long long>(patience.count(), 0, INFINITE - 1));
}

std::uint64_t count_of(const FILETIME& time) {
    return std::uint64_t(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

}  // namespace

struct running_child::native {
    handle child;
    handle job;  // the child and what it has started
    handle input;
    handle errors;
    handle written;  // set by the system when a write is done
    handle arrived;  // and when a read is

    // Returns the system's error.
    DWORD make_objects() {
        written.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!written) return GetLastError();
        arrived.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!arrived) return GetLastError();
        job.reset(CreateJobObjectW(nullptr, nullptr));
        return job ? ERROR_SUCCESS : GetLastError();
    }

    // None where the other side has closed it.
    DWORD bytes_to_read() const {
        DWORD count = 0;
        return PeekNamedPipe(errors.get(), nullptr, 0, nullptr, &count, nullptr) ? count : 0;
    }

    bool has_ended(DWORD wait) const {
        return WaitForSingleObject(child.get(), wait) == WAIT_OBJECT_0;
    }

    // One read, given up when the child ends. Returns 0 when there is nothing more to read.
    DWORD read_some(char* to, DWORD size) const {
        OVERLAPPED call{};
        call.hEvent = arrived.get();
        if (!ReadFile(errors.get(), to, size, nullptr, &call) &&
            GetLastError() != ERROR_IO_PENDING) {
            return 0;
        }
        const std::array<HANDLE, 2> news{arrived.get(), child.get()};
        if (WaitForMultipleObjects(2, news.data(), FALSE, INFINITE) != WAIT_OBJECT_0) {
            CancelIoEx(errors.get(), &call);  // it fails where the read has just been done
        }
        DWORD count = 0;
        return GetOverlappedResult(errors.get(), &call, &count, TRUE) ? count : 0;
    }
};

running_child::running_child() : m_native(new native) {}

running_child::~running_child() = default;

outcome running_child::launch(const std::vector<std::string>& command) {
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
    return outcome::fine();
}

void running_child::read_errors(last_line& lines) {
    char some[4096];
    std::optional<DWORD> rest;  // of what the pipe held when the child had ended
    while (!rest || *rest > 0) {
        const DWORD count = m_native->read_some(some, sizeof some);
        if (count == 0) return;
        lines.add({some, count});
        if (rest) {
            *rest -= std::min(*rest, count);
        } else if (m_native->has_ended(0)) {
            rest = m_native->bytes_to_read();
        }
    }
}

child_process::write_result running_child::write_some(const char* bytes, std::size_t count,
                                                      milliseconds patience, std::size_t& taken) {
    OVERLAPPED call{};
    call.hEvent = m_native->written.get();
    const HANDLE input = m_native->input.get();
    if (!WriteFile(input, bytes, static_cast<DWORD>(std::min(count, k_largest_write)), nullptr,
                   &call) &&
        GetLastError() != ERROR_IO_PENDING) {
        return child_process::write_result::closed;
    }
    const bool is_in_time = WaitForSingleObject(call.hEvent, as_wait(patience)) == WAIT_OBJECT_0;
    // The buffer is the caller's: a write that is late must be over before he has it back.
    if (!is_in_time) CancelIoEx(input, &call);
    DWORD some = 0;
    const bool is_done = GetOverlappedResult(input, &call, &some, TRUE) != 0;
    taken = some;
    if (is_done) return child_process::write_result::written;
    return is_in_time ? child_process::write_result::closed : child_process::write_result::stalled;
}

void running_child::close_input() { m_native->input.reset(); }

bool running_child::wait_for_end(milliseconds patience) const {
    return m_native->has_ended(as_wait(patience));
}

// Of the job, and of the child alone, which is in none where the system has refused it.
std::chrono::microseconds running_child::work_done() const {
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION all{};
    QueryInformationJobObject(m_native->job.get(), JobObjectBasicAccountingInformation, &all,
                              sizeof all, nullptr);
    FILETIME made{}, ended{}, kernel{}, user{};
    GetProcessTimes(m_native->child.get(), &made, &ended, &kernel, &user);
    const auto of_all =
        static_cast<std::uint64_t>(all.TotalUserTime.QuadPart + all.TotalKernelTime.QuadPart);
    constexpr std::uint64_t k_counts_of_a_microsecond = 10;
    return std::chrono::microseconds((of_all + count_of(kernel) + count_of(user)) /
                                     k_counts_of_a_microsecond);
}

int running_child::take_status() {
    DWORD status = 0;
    return GetExitCodeProcess(m_native->child.get(), &status) ? static_cast<int>(status) : -1;
}

void running_child::end_now() {
    TerminateJobObject(m_native->job.get(), 1);
    TerminateProcess(m_native->child.get(), 1);  // a system may have refused it the job
    m_native->has_ended(INFINITE);
}

}  // namespace pennywort::host
