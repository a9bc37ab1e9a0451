// host/system/file_names_win.cpp - Windows half of host/system/file_names.h. Linux half:
// host/system/file_names_linux.cpp.
#include "host/system/file_names.h"

#include <windows.h>

#include <cwchar>

#include "host/system/name_calls_win.h"
#include "loam/trace.h"

namespace pennywort::host {

decltype(&CompareStringOrdinal) name_calls::compare_string_ordinal = &CompareStringOrdinal;

namespace {

std::wstring with_one_separator(std::filesystem::path path) {
    return path.make_preferred().native();
}

}  // namespace

// By the rule of the file system itself, which looks at no language. Where the system does not
// compare them, by the case of ASCII letters: two writers of one file would ruin it in silence.
bool are_one_name(const std::filesystem::path& one, const std::filesystem::path& other) {
    const std::wstring left = with_one_separator(one);
    const std::wstring right = with_one_separator(other);
    const int order = name_calls::compare_string_ordinal(left.c_str(), -1, right.c_str(), -1, TRUE);
    if (order != 0) return order == CSTR_EQUAL;
    const DWORD error = GetLastError();
    zTraceManager::Default()->TraceNote("pennywort: CompareStringOrdinal failed (err=%lu)\n",
                                        error);
    return _wcsicmp(left.c_str(), right.c_str()) == 0;
}

}  // namespace pennywort::host
