// data_file.cpp - see the header for the contract.
#include "webdisplay/cef/data_file.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>

namespace pennywort::cef {

namespace {

// The numbers of a file, which are little-endian. What lies behind its end is larger than any.
class file_numbers {
public:
    static constexpr std::uint64_t k_nothing = std::numeric_limits<std::uint64_t>::max();

    explicit file_numbers(const std::string& path)
        : m_file(std::filesystem::path(reinterpret_cast<const char8_t*>(path.c_str())),
                 std::ios::binary | std::ios::ate),
          m_size(m_file ? static_cast<std::uint64_t>(m_file.tellg()) : 0) {}

    std::uint64_t size() const { return m_size; }

    std::uint64_t at(std::uint64_t offset, int bytes) {
        if (offset > m_size || m_size - offset < static_cast<std::uint64_t>(bytes)) {
            return k_nothing;
        }
        unsigned char text[4] = {};
        m_file.seekg(static_cast<std::streamoff>(offset));
        if (!m_file.read(reinterpret_cast<char*>(text), bytes)) return k_nothing;
        std::uint64_t number = 0;
        for (int i = bytes; i > 0; --i) number = number << 8 | text[i - 1];
        return number;
    }

private:
    std::ifstream m_file;
    std::uint64_t m_size;
};

}  // namespace

// Version, encoding, count; then for each entry its number and where it begins, and one more entry
// whose beginning is the end of all. Versions 4 and 5 count in different places.
bool is_whole_pack(const std::string& path) {
    file_numbers file(path);
    const std::uint64_t version = file.at(0, 4);
    if (version != 4 && version != 5) return false;
    const std::uint64_t index = version == 4 ? 9 : 12;
    const std::uint64_t count = version == 4 ? file.at(4, 4) : file.at(8, 2);
    constexpr std::uint64_t k_entry = 6;
    constexpr std::uint64_t k_number = 2;
    if (count > file.size()) return false;
    return file.at(index + count * k_entry + k_number, 4) <= file.size();
}

// The head's size and its mark; behind it the count of tables, and for each where its name and it
// itself begin, counted from there.
bool is_whole_unicode_data(const std::string& path) {
    constexpr std::uint64_t k_mark = 0x27da;
    file_numbers file(path);
    const std::uint64_t head = file.at(0, 2);
    if (head >= file.size() || file.at(2, 2) != k_mark) return false;
    const std::uint64_t count = file.at(head, 4);
    if (count > file.size()) return false;
    constexpr std::uint64_t k_entry = 8;
    return count == 0 || file.at(head + count * k_entry, 4) < file.size() - head;
}

}  // namespace pennywort::cef
