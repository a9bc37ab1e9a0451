// utils.h - splitting the headers of HTTP and MIME, and finding a byte pattern such as a multipart
// boundary.
//
// Threads: everything may be called from any thread at once.
#pragma once

#include <cstdint>

#include "loam/record.h"
#include "loam/string.h"
#include "loam/types.h"
#include "pennywort_export.h"

// Lengths are in bytes; a negative one counts as 0. A null text counts as empty.
class PENNYWORT_API cUtils {
public:
    // Sets one text variable of `headers` per header, from a block that begins at the first header
    // line, behind a request or status line. A later header of a name replaces an earlier one.
    // Names keep their case. The value begins two bytes behind the colon, whatever these are, and
    // a folded one keeps its inner CR LF and indentation. Lines without a colon, names of 255 bytes
    // and more, and what there is no memory for, which is traced, are passed over. Returns the
    // bytes of all lines with their CR LF, without the blank line that ends the block: the body
    // begins 2 bytes further on.
    static std::int32_t HeaderParse(const char* buffer, std::int32_t length, zRecord& headers);

    // Takes the next entry off a header value that is made of tokens and name=value pairs with
    // semicolons between, such as "multipart/related; boundary=abc". A token before a semicolon
    // is returned as a value without a name, one at the end of the text as a name without a value;
    // hosts rely on that. Quotation marks are bytes like any other. The results point into `value`,
    // null with 0 for what there is not. Returns the bytes taken, 0 at the end of the text.
    static std::int32_t HeaderEntry_ParseToNextEntry(const char* value, const char** name,
                                                     std::int32_t* nameLength,
                                                     const char** entryValue,
                                                     std::int32_t* entryValueLength);
    // The value of the first entry whose name, over its own length and without regard to case,
    // equals the front of `name`: "bound" is found when "boundary" is asked for, and hosts rely on
    // that. -1, with null and 0, when there is none.
    static zStatus HeaderEntry_FindByName(const char* value, const char* name,
                                          const char** entryValue, std::int32_t* entryValueLength);

    // The two forms of the name by which XML refers to another part of its message (XOP): the
    // part's Content-ID header, "<id>", and the reference, "cid:id". Each replaces `out` and
    // returns its text; `id` may point into `out`. Nothing in `id` is checked or escaped. Without
    // memory std::bad_alloc is thrown, and `out` is as it was.
    static const char* XOP_MakeContentIDHeaderString(zString& out, const char* id);
    static const char* XOP_MakeReference(zString& out, const char* id);

private:
    static std::int32_t HeaderParse_ToNextLine(const char* buffer, std::int32_t length,
                                               std::int32_t* lineLength, const char** colon);
};

// Finds one pattern in any number of texts. The pattern is not copied: it must stay, unchanged, for
// as long as anybody searches with this object or with a copy of it.
class PENNYWORT_API cBoyerMoore {
public:
    // 1 to 255 bytes; with any other length, or null, nothing is ever found.
    cBoyerMoore(const void* pattern, std::int32_t length);
    cBoyerMoore(const cBoyerMoore&) = default;
    cBoyerMoore(cBoyerMoore&&) = default;
    cBoyerMoore& operator=(const cBoyerMoore&) = default;
    cBoyerMoore& operator=(cBoyerMoore&&) = default;

    // Where the pattern first occurs, or -1.
    std::int32_t FindIn(const void* text, std::int32_t length) const;

private:
    const unsigned char* m_pattern = nullptr;
    std::int32_t m_length = 0;
    std::int32_t m_skip[256];  // by a byte of the text: how far the pattern can jump
};
