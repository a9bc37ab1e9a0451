// loam/thread_state_win.cpp - Windows half of loam/thread_state.h. Linux half:
// thread_state_linux.cpp.
#include <windows.h>
// After windows.h, whose types it needs.
#include <process.h>
#include <tlhelp32.h>

#include <cerrno>
#include <chrono>
#include <new>

#include "loam/thread.h"
#include "loam/thread_state.h"
#include "loam/wide_text.h"

namespace loam {
namespace {

unsigned __stdcall thread_main(void* argument) {
    static_cast<thread_state*>(argument)->run();
    return 0;
}

HANDLE native(std::uintptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

std::uint64_t birth_of(DWORD thread_id) {
    std::uint64_t birth = ~std::uint64_t{0};
    const HANDLE thread = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, thread_id);
    if (thread == nullptr) return birth;
    FILETIME created{};
    FILETIME other{};
    if (GetThreadTimes(thread, &created, &other, &other, &other)) {
        birth = std::uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime;
    }
    CloseHandle(thread);
    return birth;
}

// The system does not say which thread a process began with, and this library may have been loaded
// by any: it is the oldest one.
DWORD find_oldest_thread() {
    const HANDLE threads = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (threads == INVALID_HANDLE_VALUE) return GetCurrentThreadId();
    DWORD oldest = 0;
    std::uint64_t oldest_birth = ~std::uint64_t{0};
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(threads, &entry); more; more = Thread32Next(threads, &entry)) {
        if (entry.th32OwnerProcessID != GetCurrentProcessId()) continue;
        const std::uint64_t birth = birth_of(entry.th32ThreadID);
        if (birth >= oldest_birth) continue;
        oldest = entry.th32ThreadID;
        oldest_birth = birth;
    }
    CloseHandle(threads);
    return oldest;
}

// CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, which older headers lack.
constexpr DWORD k_high_resolution = 0x00000002;

// Fine-grained where the system has it (from Windows 10 1803); else it counts in clock ticks.
HANDLE make_timer() {
    const HANDLE fine =
        CreateWaitableTimerExW(nullptr, nullptr, k_high_resolution, TIMER_ALL_ACCESS);
    return fine != nullptr ? fine : CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS);
}

// Whether the timer did the waiting.
bool wait_on_timer(std::chrono::microseconds time) {
    const HANDLE timer = make_timer();
    if (timer == nullptr) return false;
    LARGE_INTEGER due{};
    due.QuadPart = -time.count() * 10;  // negative: from now on, in units of 100 ns
    const bool is_set = SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE) != 0;
    const bool has_waited = is_set && WaitForSingleObject(timer, INFINITE) == WAIT_OBJECT_0;
    CloseHandle(timer);
    return has_waited;
}

}  // namespace

int thread_state::start_native() {
    // It waits until its priority has been set.
    m_handle = _beginthreadex(nullptr, 0, thread_main, this, CREATE_SUSPENDED, nullptr);
    if (m_handle == 0) return errno;
    const HANDLE thread = native(m_handle);
    SetThreadPriority(thread, GetThreadPriority(GetCurrentThread()));
    if (ResumeThread(thread) != static_cast<DWORD>(-1)) return 0;
    const int error = static_cast<int>(GetLastError());
    // It never ran, so nothing of it can be in use.
    TerminateThread(thread, 0);
    CloseHandle(thread);
    return error;
}

void thread_state::join_native() {
    WaitForSingleObject(native(m_handle), INFINITE);
    CloseHandle(native(m_handle));
}

void thread_state::release_native() { CloseHandle(native(m_handle)); }

// Looked up, since the first editions of Windows 10 lack it. A thread without a name runs as well,
// so that there is no memory for it is nobody's failure.
void name_thread(const std::string& name) {
    using set_description = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    const auto set = reinterpret_cast<set_description>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
    if (set == nullptr) return;
    try {
        set(GetCurrentThread(), wide_text(name).c_str());
    } catch (const std::bad_alloc&) {
    }
}

void thread_state::run_body() {
    const char* const arguments[] = {m_name.c_str(), nullptr};
    try {
        m_body->Main(1, arguments);
    } catch (...) {
        trace_exception();
    }
}

bool is_main_thread() {
    static const DWORD the_main_thread = find_oldest_thread();
    return GetCurrentThreadId() == the_main_thread;
}

// Repeated until the time is over: a wait may end up to one clock tick early.
void sleep_micro(std::uint32_t microseconds) {
    using clock = std::chrono::steady_clock;
    if (microseconds == 0) {
        SwitchToThread();
        return;
    }
    const auto end = clock::now() + std::chrono::microseconds(microseconds);
    for (auto left = end - clock::now(); left > clock::duration::zero();
         left = end - clock::now()) {
        if (wait_on_timer(std::chrono::ceil<std::chrono::microseconds>(left))) continue;
        Sleep(static_cast<DWORD>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
    }
}

}  // namespace loam
