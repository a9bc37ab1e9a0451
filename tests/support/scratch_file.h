// scratch_file.h - a file of the system's own, for what writes to a FILE. It goes with the test.
#pragma once

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace pennywort::tests {

class scratch_file {
public:
    scratch_file() {
        const int error = errno;
        if (m_file == nullptr) throw std::system_error(error, std::generic_category(), "tmpfile");
    }
    scratch_file(const scratch_file&) = delete;
    scratch_file& operator=(const scratch_file&) = delete;
    ~scratch_file() { std::fclose(m_file); }

    std::FILE* get() const { return m_file; }

    // All that was written.
    std::string text() const {
        std::string all;
        std::rewind(m_file);
        char piece[4096];
        while (const std::size_t size = std::fread(piece, 1, sizeof piece, m_file)) {
            all.append(piece, size);
        }
        return all;
    }

private:
    std::FILE* const m_file = std::tmpfile();
};

}  // namespace pennywort::tests
