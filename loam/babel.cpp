// loam/babel.cpp - see the header for the contract.
#include "loam/babel.h"

#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "loam/out_of_memory.h"
#include "loam/utf.h"

namespace {

zStatus write_wide(zBuffer& out, std::string_view text, std::uint32_t encoding) {
    std::optional<std::u16string> wide;
    if (encoding == zBabel::k_utf8) wide = loam::wide_from_utf8(text);
    if (!wide) return -1;
    const std::size_t bytes = wide->size() * sizeof(char16_t);
    if (bytes > std::numeric_limits<std::uint32_t>::max()) return -1;
    const zStatus status = out.ResizeTo(static_cast<std::uint32_t>(bytes), 0);
    if (status == 0 && bytes != 0) std::memcpy(out.Data(), wide->data(), bytes);
    return status;
}

}  // namespace

zStatus zBabel::ConvertToWide(zBuffer& out, const char* text, std::int32_t length,
                              std::uint32_t encoding) {
    const zStatus status = loam::unless_out_of_memory(
        [&] { return write_wide(out, loam::text_view(text, length), encoding); });
    if (status != 0) out.ResizeTo(0, 0);
    return status;
}
