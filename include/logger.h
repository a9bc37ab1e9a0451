// logger.h - cLogger writes a transcript of network traffic to a file: what was sent, what was
// received, notes and errors, each behind a line of dashes with a label in it.
//
// Threads: AddRef and Release may be called from any thread at once; everything else belongs to one
// thread at a time.
#pragma once

#include <cstdint>

#include "loam/string.h"
#include "pennywort_export.h"

class zFileStream;

// Counted: whoever calls `new` holds the first reference, and the last Release closes the file and
// destroys the logger. A file that cannot be opened or written is no failure of the traffic:
// nothing is reported, and the transcript is what could be written.
class PENNYWORT_API cLogger {
public:
    // Creates the file at `path` (UTF-8), or empties it. At most `maximum` bytes of an entry's body
    // are written; a longer one is cut and says so.
    cLogger(const char* path, std::int32_t maximum);
    // Member by member: a copy shares the open file, and only one of the two may close it.
    cLogger(const cLogger& other) = default;
    cLogger& operator=(const cLogger& other) = default;

    // The new count; after Release has returned 0 the logger is gone.
    std::int32_t AddRef();
    std::int32_t Release();

    // Closes what is open and begins the file anew.
    void Start();
    // Writes the closing line and closes the file. Entries are dropped until Start.
    void Close();
    const char* FilePath() const;
    // Deletes the file. An open one is not closed first: what the system makes of that is its own.
    void RemoveFile();

    // Whether something since Start could not be written; false once it is closed.
    bool HasFailed() const;

    // A blank line, then 96 dashes with `label` in their middle (95 characters for a label of odd
    // length); dashes alone for null. Labels are short, 96 bytes at most.
    void Separator(const char* label);
    // An entry of any bytes, as they are.
    void Sent(const char* data, std::int32_t length);
    void Received(const char* data, std::int32_t length);
    // An entry of a text up to its NUL; null has no body.
    void Message(const char* label, const char* message);
    void Error(std::int32_t code, const char* message);

protected:
    ~cLogger();

private:
    void data_entry(const char* label, const char* data, std::int32_t length);
    void write(const char* data, std::int32_t length);

    zFileStream* m_file = nullptr;
    zString m_path;
    std::int32_t m_references = 1;
    std::int32_t m_maximum = 0;
};
