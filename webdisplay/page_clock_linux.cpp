// page_clock_linux.cpp - Linux half of page_clock.h. Windows half: page_clock_win.cpp; what they
// share: page_clock.cpp.
#include "webdisplay/page_clock.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <span>
#include <string_view>

#include "webdisplay/page_moment.h"

namespace pennywort::webdisplay {

namespace {

constexpr std::string_view k_clock = "clock_gettime";

int page_clock_gettime(clockid_t clock, timespec* out) noexcept {
    moment_state& moment = moment_of_thread();
    if (!moment.is_set || clock != CLOCK_MONOTONIC) return clock_gettime(clock, out);
    moment.was_read = true;
    out->tv_sec = moment.nanoseconds / k_nanoseconds_a_second;
    out->tv_nsec = moment.nanoseconds % k_nanoseconds_a_second;
    return 0;
}

// A loaded library: where it lies, and what its dynamic section says.
struct library {
    const void* address = nullptr;  // within it
    ElfW(Addr) base = 0;
    const ElfW(Sym) * symbols = nullptr;
    const char* names = nullptr;
    std::span<const ElfW(Rela)> calls;
    std::span<const ElfW(Rela)> data;
    std::uintptr_t sealed_from = 0;  // read-only once the library was loaded
    std::uintptr_t sealed_to = 0;

    bool is_found() const { return symbols != nullptr && names != nullptr; }
};

bool holds(const dl_phdr_info& info, const void* address) {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    for (const auto& segment : std::span(info.dlpi_phdr, info.dlpi_phnum)) {
        const std::uintptr_t begin = info.dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_LOAD && at >= begin && at < begin + segment.p_memsz) return true;
    }
    return false;
}

void read_dynamic(library& found, const ElfW(Dyn) * entry) {
    const void* calls = nullptr;
    const void* data = nullptr;
    std::size_t calls_size = 0;
    std::size_t data_size = 0;
    for (; entry->d_tag != DT_NULL; ++entry) {
        const auto* at = reinterpret_cast<const void*>(entry->d_un.d_ptr);
        if (entry->d_tag == DT_SYMTAB) found.symbols = static_cast<const ElfW(Sym)*>(at);
        if (entry->d_tag == DT_STRTAB) found.names = static_cast<const char*>(at);
        if (entry->d_tag == DT_JMPREL) calls = at;
        if (entry->d_tag == DT_PLTRELSZ) calls_size = entry->d_un.d_val;
        if (entry->d_tag == DT_RELA) data = at;
        if (entry->d_tag == DT_RELASZ) data_size = entry->d_un.d_val;
    }
    using row = const ElfW(Rela);
    if (calls != nullptr) found.calls = {static_cast<row*>(calls), calls_size / sizeof(row)};
    if (data != nullptr) found.data = {static_cast<row*>(data), data_size / sizeof(row)};
}

int take_if_it_holds(dl_phdr_info* info, std::size_t, void* out) {
    auto& found = *static_cast<library*>(out);
    if (!holds(*info, found.address)) return 0;
    found.base = info->dlpi_addr;
    for (const auto& segment : std::span(info->dlpi_phdr, info->dlpi_phnum)) {
        const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_DYNAMIC) {
            read_dynamic(found, reinterpret_cast<const ElfW(Dyn)*>(begin));
        }
        if (segment.p_type != PT_GNU_RELRO) continue;
        found.sealed_from = begin;
        found.sealed_to = begin + segment.p_memsz;
    }
    return 1;
}

// Where the library keeps the address of the clock, if this row is about it.
void** slot_of(const library& found, const ElfW(Rela) & row) {
    const auto type = ELF64_R_TYPE(row.r_info);
    if (type != R_X86_64_JUMP_SLOT && type != R_X86_64_GLOB_DAT) return nullptr;
    const auto& symbol = found.symbols[ELF64_R_SYM(row.r_info)];
    if (found.names + symbol.st_name != k_clock) return nullptr;
    return reinterpret_cast<void**>(found.base + row.r_offset);
}

// The threads of the library may be calling through the slot, so it changes in one piece.
outcome<> put(const library& found, void** slot) {
    const auto page_size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto at = reinterpret_cast<std::uintptr_t>(slot);
    void* const page = reinterpret_cast<void*>(at / page_size * page_size);
    if (mprotect(page, page_size, PROT_READ | PROT_WRITE) != 0) {
        return failure{k_failed, std::string("its table of functions cannot be changed: ") +
                                     std::strerror(errno)};
    }
    __atomic_store_n(slot, reinterpret_cast<void*>(&page_clock_gettime), __ATOMIC_RELEASE);
    const bool was_sealed = at >= found.sealed_from && at < found.sealed_to;
    if (was_sealed) mprotect(page, page_size, PROT_READ);
    return {};
}

}  // namespace

outcome<> lead_clock_of(const void* address) {
    library found;
    found.address = address;
    dl_iterate_phdr(take_if_it_holds, &found);
    if (!found.is_found()) return failure{k_failed, "its library is not found"};
    bool is_led = false;
    for (const auto& rows : {found.calls, found.data}) {
        for (const auto& row : rows) {
            void** const slot = slot_of(found, row);
            if (slot == nullptr) continue;
            outcome<> done = put(found, slot);
            if (!done) return done;
            is_led = true;
        }
    }
    if (!is_led) return failure{k_failed, "its library does not import clock_gettime"};
    return {};
}

}  // namespace pennywort::webdisplay
