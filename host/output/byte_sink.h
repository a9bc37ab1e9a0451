// host/output/byte_sink.h - where a stream of bytes goes: a file, a named pipe or standard output.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>

#include "host/system/outcome.h"

namespace pennywort::host {

// Used by one thread at a time.
class byte_sink {
public:
    byte_sink() = default;

    // Replaces a file of that name. Opening a named pipe waits for its reader.
    outcome open(const std::string& path);
    // Takes a file that another program has written, so that close can tell whether the disk has
    // it.
    outcome open_again(const std::string& path);
    // Writes to an open stream, which stays the caller's.
    void use(std::FILE* stream, const std::string& name);

    // Waits for the reader of a pipe.
    outcome write(const void* bytes, std::size_t count);
    // Over the first bytes of a file; what comes next stands behind the last ones again. On a pipe,
    // which has no way back, nothing happens.
    outcome write_again(const void* bytes, std::size_t count);
    outcome close();
    // The same once the disk has the file: only then it is known that it is whole.
    outcome close_on_disk();

private:
    struct closer {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };

    outcome problem(const char* doing) const;
    outcome problem(const char* doing, const std::error_code& error) const;

    std::unique_ptr<std::FILE, closer> m_owned;
    std::FILE* m_stream = nullptr;
    std::string m_name;
};

}  // namespace pennywort::host
