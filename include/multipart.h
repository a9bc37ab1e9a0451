// multipart.h - MIME messages of several parts (multipart/related, RFC 2387): a view of a record
// that describes one, its reader and its writer. The bytes of the parts stay in the caller's memory
// and are never copied.
//
// Threads: a record and everything that works on it belong to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "loam/record.h"
#include "loam/string.h"
#include "loam/types.h"
#include "pennywort_export.h"

// A message as a record: its headers are text variables, "__nimb_mime_boundry" is its boundary, and
// each child is a section. The record is not owned and nothing in it is checked.
class PENNYWORT_API cMultipartRecord {
public:
    // One part: "__data_offset" and "__data_size" (bytes, from the start of the caller's memory)
    // are the first two variables of its record, its headers all others. Not owned.
    class PENNYWORT_API Section {
    public:
        // Refers to nothing: every operation below then changes nothing and returns -1, 0 for the
        // numbers, or the default.
        Section() = default;

        // Sets or replaces a header.
        zStatus AddHeader(const char* name, const char* value);
        std::int32_t GetDataOffset() const;
        std::int32_t GetDataSize() const;
        void SetDataOffset(std::int32_t offset);
        void SetDataSize(std::int32_t size);
        // -1 when this refers to nothing.
        std::int32_t HeaderCount() const;
        // In the order of their setting. -1, and both empty, when there is no such header.
        zStatus HeaderByIndex(std::int32_t index, zString& name, zString& value) const;
        std::string HeaderByName(const char* name, const char* otherwise) const;
        // Bytes of name and value, each 0 and the status -1 when there is no such header. Either
        // may be null.
        zStatus HeaderSizeByIndex(std::int32_t index, std::int32_t* nameLength,
                                  std::int32_t* valueLength) const;

    private:
        friend class cMultipartRecord;

        zRecord* m_record = nullptr;
    };

    // `record` must last. Sets its content type unless `contentType` is null.
    cMultipartRecord(zRecord& record, const char* contentType);

    void SetContentType(const char* type);
    std::string GetContentType(const char* otherwise) const;
    // What separates the parts; "MimeBoundary_8923gr836bidfb3i" if none was set.
    void SetBoundary(const char* boundary);
    std::string GetBoundary() const;
    // A header of the message; exactly `length` bytes of `value`.
    void SetHeader(const char* name, const char* value, std::int32_t length);
    std::string GetHeader(const char* name, const char* otherwise) const;

    // Appends a section of `dataSize` bytes, with a content type unless that is null, and returns
    // its index; -1 when memory is out.
    std::int32_t AddSection(std::int32_t dataSize, const char* contentType);
    // Nothing if there is no such section.
    void AddSectionHeader(std::int32_t index, const char* name, const char* value);
    std::int32_t SectionCount() const;
    // -1, and `out` refers to nothing, when there is no such section.
    zStatus GetSection(Section& out, std::int32_t index) const;
    zRecord* GetSectionRecord(std::int32_t index) const;
    // The first section with this header, byte for byte and not empty; otherwise -1, and `out`
    // refers to nothing.
    zStatus FindSectionBySectionHeaderValue(Section& out, const char* headerName,
                                            const char* value) const;

private:
    zRecord* m_record;
};

// Takes a received message apart into the layout of cMultipartRecord.
class PENNYWORT_API cMultipartReader {
public:
    // `record` must last.
    explicit cMultipartReader(zRecord& record);

    // A message with its headers in front, whose Content-Type names the boundary. Empties the
    // record first. -1 when anything of the message is not as it should be; the sections up to
    // there stay.
    zStatus Parse_WithHeaders(const char* buffer, std::int32_t length);
    // A body that begins at `bodyOffset` with its first delimiter, which is not looked at. A part
    // that begins with "-" behind a delimiter is taken for the end. Boundaries of more than 251
    // bytes are never found.
    zStatus Parse_BodyOnly(const char* buffer, std::int32_t length, const char* boundary,
                           std::int32_t boundaryLength, std::int32_t bodyOffset);
    // Where a section's bytes are in the buffer that was parsed; `length` must be the one that was
    // given then, or nothing changes. -1 when the section does not lie within.
    zStatus GetSectionData(cMultipartRecord::Section& section, const char* buffer,
                           std::int32_t length, const char** data, std::int32_t* size) const;

private:
    zStatus parse_with_headers(const char* buffer, std::int32_t length);

    std::int32_t m_parsed_length = 0;
    zRecord* m_record;
};

// Writes what stands around the parts of a message: for each section its header, its bytes (by the
// caller), the footer, and at the end the message's footer. Sets the record's content type to
// "multipart/related" each time.
class PENNYWORT_API cMultipartWriter {
public:
    // `record` must last.
    explicit cMultipartWriter(zRecord& record);

    // Each replaces `out` and returns its text. Without memory std::bad_alloc is thrown, and `out`
    // is as it was.
    const char* GetHttpHeader(zString& out, bool endHeaders);
    const char* GetSectionHeader(zString& out, std::int32_t index);
    const char* GetSectionFooter() const;
    const char* GetMessageFooter(zString& out);
    // Bytes of the body; -1 past 2^31 - 1. A message without sections counts 2 more than it has.
    std::int32_t ContentLength();

private:
    zRecord* m_record;
};
