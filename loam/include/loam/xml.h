// loam/xml.h - zXML reads XML documents into trees of records and writes such trees as XML.
//
// Threads: everything may be called from any thread at once, with records that no other uses.
#pragma once

#include <cstdint>

#include "loam/buffer.h"
#include "loam/export.h"
#include "loam/record.h"
#include "loam/types.h"

// An element is a record: its name and its text are the variables with the identifiers below, its
// attributes are the variables with names, in order, and its child elements are its children, in
// order. An element without text has no text variable. Text is UTF-8. Pieces of text between child
// elements are put together; white space that stands alone beside child elements is left out.
// Comments and processing instructions are left out, and names keep their prefixes as they are.
class LOAM_API zXML {
public:
    // 'name' and 'text', four characters packed big-endian.
    static constexpr std::uint64_t k_name = 0x6E616D65;
    static constexpr std::uint64_t k_text = 0x74657874;

    // Statuses of ParseBuffer beside -1, which means that memory is out.
    static constexpr zStatus k_malformed = -2001;
    static constexpr zStatus k_doctype = -2002;   // has a document type declaration
    static constexpr zStatus k_entity = -2003;    // an entity beyond the five that XML has
    static constexpr zStatus k_encoding = -2004;  // an unknown one, or bytes that are not of it
    static constexpr zStatus k_too_large = -2005;
    static constexpr zStatus k_too_deep = -2006;
    static constexpr zStatus k_too_wide = -2007;
    static constexpr zStatus k_too_many_attributes = -2008;
    // Statuses of RecordToBuffer.
    static constexpr zStatus k_bad_name = -2011;  // none, or not one that XML can have
    static constexpr zStatus k_bad_text = -2012;  // bytes, or characters that XML cannot hold

    // What a document may have: bytes, elements in all, elements within each other, child elements
    // of one element, attributes of one element.
    static constexpr std::int32_t k_most_bytes = 256 * 1024 * 1024;
    static constexpr std::uint32_t k_most_elements = 1024 * 1024;
    static constexpr std::uint32_t k_deepest = 1000;
    static constexpr std::uint32_t k_widest = 256 * 1024;
    static constexpr std::uint32_t k_most_attributes = 256;

    // Replaces `out` with the document's root element. `flags` are not looked at; pass 255. A
    // negative `length` means up to the NUL. The encoding is the one that the document declares or
    // begins with: UTF-8, UTF-16, ISO-8859-1 or US-ASCII. Nothing outside the document is ever
    // read. With any status but 0, `out` is empty. A record that is taken out of the tree keeps up
    // to 64 KiB of its neighbours' memory, a copy of it only its own.
    static zStatus ParseBuffer(std::uint32_t flags, zRecord* out, const char* xml,
                               std::int32_t length);

    // Bits of the flags of RecordToBuffer.
    static constexpr std::uint32_t k_with_declaration = 1;  // <?xml version="1.0" ...?> in front
    static constexpr std::uint32_t k_short_empty = 2;       // <a/> instead of <a></a>

    // Writes the tree in UTF-8, so that ParseBuffer gives it back with the same texts, line ends
    // included. Numbers and bools become text. `isIndented` puts each element on a line of its own
    // where there is no text beside it. `isReplacing` replaces what `out` holds, otherwise the
    // document is appended. With any status but 0, `out` is as it was.
    static zStatus RecordToBuffer(zBuffer* out, const zRecord& in, std::uint32_t flags,
                                  bool isIndented, bool isReplacing);
};
