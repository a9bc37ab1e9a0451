// loam/string.h - zString, an owned, growable string of bytes.
//
// Threads: not locked; any number of threads may read one string that nobody changes.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "loam/export.h"

// Some C libraries make this name a macro in programs that are built without optimisation, where
// the member of this name would become another one than the library has.
#undef strncasecmp

// The bytes are counted, so a string may hold NULs. Text that is not ASCII is UTF-8 by convention,
// but nothing here looks at it. A null text pointer counts as the empty text everywhere, and a
// length of all ones (0xFFFFFFFF, or -1 where lengths are signed) means up to the NUL. Nothing
// throws but the allocation of memory.
class LOAM_API zString {
public:
    // Passed as a length: up to the terminating NUL.
    static constexpr std::uint32_t k_to_nul = 0xFFFFFFFFu;

    zString() = default;
    // Exactly `length` bytes of `text`, which must be there. Implicit, so that a text can stand
    // where an operation takes a zString const&.
    zString(const char* text, std::uint32_t length = k_to_nul);
    // `length` UTF-16 units. Half a surrogate pair without its other half becomes U+FFFD. Any
    // negative length means up to the NUL.
    zString(const char16_t* wide, std::int32_t length);
    explicit zString(std::string text);
    zString(const zString& other) = default;
    zString(zString&& other) noexcept;
    ~zString() = default;

    const zString& operator=(const char* text);
    const zString& operator=(const zString& other);
    const zString& operator=(zString&& other) noexcept;
    const zString& operator=(std::string text);
    const zString& operator+=(const char* text);
    const zString& operator+=(const zString& other);
    const zString& operator+=(std::string text);

    friend bool operator==(const zString& a, const zString& b) { return a.View() == b.View(); }
    friend bool operator!=(const zString& a, const zString& b) { return a.View() != b.View(); }

    // Never null; valid until the string is changed or ends.
    const char* CString() const;
    // The bytes with their length, NULs included; valid as long as CString().
    std::string_view View() const;
    // In bytes, without the terminating NUL.
    std::uint32_t Length() const;
    bool Empty() const;

    // The decimal number at the front, after white space and a sign; what follows it is ignored.
    // 0 where there is none; a number that does not fit becomes the nearest that does.
    std::int32_t AsInt32() const;
    std::int64_t AsInt64() const;

    // Replace the content and return CString(). `text` may point into this string.
    const char* SetString(const char* text, std::uint32_t length = k_to_nul);
    const char* SetWideStr(const char16_t* wide, std::int32_t length = -1);

    // `text` may point into this string.
    void AddToEnd(const char* text, std::uint32_t length);
    void AddToEnd(std::string text);
    void Prepend(const char* text, std::uint32_t length = k_to_nul);

    // Makes room for `size` bytes and returns where they start, so that other code can write a text
    // there. What was in the string stands at the front, the room behind it is filled with NULs;
    // a longer content is not cut. Until the next change of the string, its length is counted up
    // to the first NUL. The pointer is valid until then.
    char* Preallocate(std::int32_t size);
    // Cuts the string to `length` bytes or fills it up with NULs. After Preallocate it says how
    // many of the bytes there count, where they may hold NULs.
    void SetLength(std::uint32_t length);

    // Replaces the content; the arguments may point into this string. Empty when the format cannot
    // be carried out.
    char* sprintf(const char* format, ...) LOAM_PRINTF(2, 3);

    // Keeps what stands before the first `separator` and puts what stands behind it into `*other`,
    // unless that is null. Without a separator (none found, or an empty one) this string stays as
    // it is and `*other` becomes empty. `other` may not be this string. Returns this string.
    zString& SplitAtFirst(zString* other, const char* separator);

    // Compares at most `n` bytes up to a NUL, ASCII letters without their case: 0 when equal,
    // negative when `a` comes first. The locale plays no part.
    static int strncasecmp(const char* a, const char* b, std::int32_t n);

private:
    // Ends what Preallocate began: from here on the length is m_text's own.
    void settle();

    std::string m_text;
    bool m_open_ended = false;
};
