// loam/thread_state_win.cpp - Windows half of loam/thread_state.h. Linux half:
// thread_state_linux.cpp.
#include <windows.h>
// After windows.h, whose types it needs.
#include <process.h>
#include <tlhelp32.h>

#include <chrono>
#include <utility>

#include "loam/thread.h"
#include "loam/thread_state.h"
#include "loam/trace.h"
#include "loam/wide_text.h"

namespace loam {
namespace {

unsigned __stdcall thread_main(void* argument) {
    const std::unique_ptr<std::shared_ptr<thread_state>> state(
        static_cast<std::shared_ptr<thread_state>*>(argument));
    (*state)->run();
    return 0;
}

// Looked up, since the first editions of Windows 10 lack it.
void name_current_thread(const std::string& name) {
    using set_description = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    const auto set = reinterpret_cast<set_description>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
    if (set != nullptr) set(GetCurrentThread(), wide_text(name).c_str());
}

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
    const bool set = SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE) != 0;
    const bool waited = set && WaitForSingleObject(timer, INFINITE) == WAIT_OBJECT_0;
    CloseHandle(timer);
    return waited;
}

}  // namespace

struct thread_state::native {
    HANDLE handle = nullptr;
    DWORD id = 0;
};

thread_state::thread_state(const char* name, zThreadMain* body)
    : m_name(name), m_body(body), m_native(std::make_unique<native>()) {}

std::shared_ptr<thread_state> thread_state::start(const char* name, zThreadMain* body) {
    std::shared_ptr<thread_state> state(new thread_state(name, body));
    auto argument = std::make_unique<std::shared_ptr<thread_state>>(state);
    unsigned id = 0;
    // It waits until its handle has been stored.
    const auto handle = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, thread_main, argument.get(), CREATE_SUSPENDED, &id));
    if (handle == nullptr) {
        zTraceManager::Default()->TraceNote("zThread::Factory: _beginthreadex failed (err=%d)\n",
                                            errno);
        return nullptr;
    }
    argument.release();
    state->m_native->handle = handle;
    state->m_native->id = id;
    SetThreadPriority(handle, GetThreadPriority(GetCurrentThread()));
    ResumeThread(handle);
    return state;
}

thread_state::~thread_state() {
    if (m_native->handle != nullptr) CloseHandle(m_native->handle);
}

bool thread_state::is_own_thread() const { return m_native->id == GetCurrentThreadId(); }

void thread_state::join() {
    if (is_own_thread()) return;
    const std::lock_guard lock(m_join_mutex);
    if (m_joined) return;
    WaitForSingleObject(m_native->handle, INFINITE);
    m_joined = true;
}

void thread_state::run() {
    name_current_thread(m_name);
    run_body();
    m_running.store(false, std::memory_order_release);
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
