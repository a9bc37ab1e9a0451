// page_clock_win.cpp - Windows half of page_clock.h. Linux half: page_clock_linux.cpp; what they
// share: page_clock.cpp.
#include "webdisplay/page_clock.h"

#include <windows.h>

#include <string_view>

#include "webdisplay/page_moment.h"

namespace pennywort::webdisplay {

namespace {

constexpr std::string_view k_clock = "QueryPerformanceCounter";

// The same for the whole life of the machine.
std::int64_t ticks_a_second() {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

// In two parts, since the product of a day's nanoseconds and the frequency does not fit.
std::int64_t ticks_of(std::int64_t nanoseconds) {
    static const std::int64_t frequency = ticks_a_second();
    const std::int64_t rest = nanoseconds % k_nanoseconds_a_second;
    // Rounded up: the reader divides again, and would find a tick less.
    return nanoseconds / k_nanoseconds_a_second * frequency +
           (rest * frequency + k_nanoseconds_a_second - 1) / k_nanoseconds_a_second;
}

BOOL WINAPI page_performance_counter(LARGE_INTEGER* out) {
    moment_state& moment = moment_of_thread();
    if (!moment.is_set) return QueryPerformanceCounter(out);
    moment.was_read = true;
    out->QuadPart = ticks_of(moment.nanoseconds);
    return TRUE;
}

const IMAGE_DATA_DIRECTORY* imports_of(const unsigned char* base) {
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    if (dos->e_magic != IMAGE_DOS_SIGNATURE) return nullptr;
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    if (nt->Signature != IMAGE_NT_SIGNATURE) return nullptr;
    const auto& imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    return imports.VirtualAddress != 0 ? &imports : nullptr;
}

// Where one imported library's part of the table has the address of the clock.
void** slot_in(unsigned char* base, const IMAGE_IMPORT_DESCRIPTOR& library) {
    if (library.OriginalFirstThunk == 0) return nullptr;  // no names beside the addresses
    const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + library.OriginalFirstThunk);
    auto* address = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library.FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++address) {
        if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
        const auto* by_name =
            reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
        if (reinterpret_cast<const char*>(by_name->Name) == k_clock) {
            return reinterpret_cast<void**>(&address->u1.Function);
        }
    }
    return nullptr;
}

failure failed(const char* call, DWORD error) {
    return {k_failed, std::string(call) + " - failed (err=" + std::to_string(error) + ")"};
}

// The threads of the library may be calling through the slot, so it changes in one piece.
outcome<> put(void** slot) {
    DWORD before = 0;
    if (!VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &before)) {
        return failed("VirtualProtect", GetLastError());
    }
    InterlockedExchangePointer(slot, reinterpret_cast<void*>(&page_performance_counter));
    if (!VirtualProtect(slot, sizeof *slot, before, &before)) {
        return failed("VirtualProtect", GetLastError());
    }
    return {};
}

}  // namespace

outcome<> lead_clock_of(const void* address) {
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            static_cast<const wchar_t*>(address), &module)) {
        return failed("GetModuleHandleExW", GetLastError());
    }
    auto* base = reinterpret_cast<unsigned char*>(module);
    const IMAGE_DATA_DIRECTORY* imports = imports_of(base);
    if (imports == nullptr) return failure{k_failed, "its library imports nothing"};
    const auto* library =
        reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports->VirtualAddress);
    for (; library->FirstThunk != 0; ++library) {
        void** const slot = slot_in(base, *library);
        if (slot != nullptr) return put(slot);
    }
    return failure{k_failed, "its library does not import QueryPerformanceCounter"};
}

}  // namespace pennywort::webdisplay
