// loam/system_error_text_win.cpp - see the header for the contract.
#include <windows.h>

#include "loam/system_error_text.h"
#include "loam/wide_text.h"

namespace loam {

std::string system_error_text(unsigned long code) {
    wchar_t text[512];
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                       text, static_cast<DWORD>(std::size(text)), nullptr);
    std::wstring_view words(text, length);
    // They end their sentence, and the line after it.
    while (!words.empty() && (words.back() <= L' ' || words.back() == L'.')) words.remove_suffix(1);
    const std::string number = "error " + std::to_string(code);
    return words.empty() ? number : utf8_text(words) + " (" + number + ")";
}

}  // namespace loam
