// host/output/byte_sink.cpp - see the header for the contract.
#include "host/output/byte_sink.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "host/system/file_sync.h"

namespace pennywort::host {

// errno belongs to the call just made: nothing may come between.
outcome byte_sink::problem(const char* doing) const {
    return problem(doing, std::error_code(errno, std::generic_category()));
}

outcome byte_sink::problem(const char* doing, const std::error_code& error) const {
    if (error == std::errc::broken_pipe) return outcome::reader_closed();
    return outcome::failed("cannot " + std::string(doing) + " " + m_name + ": " + error.message());
}

outcome byte_sink::open(const std::string& path) {
    m_name = path;
    m_owned.reset(std::fopen(path.c_str(), "wb"));
    m_stream = m_owned.get();
    if (m_stream == nullptr) return problem("write");
    // Frames are written whole; a buffer in between would only copy them.
    std::setvbuf(m_stream, nullptr, _IONBF, 0);
    return outcome::fine();
}

outcome byte_sink::open_again(const std::string& path) {
    m_name = path;
    m_owned.reset(std::fopen(path.c_str(), "r+b"));
    m_stream = m_owned.get();
    return m_stream == nullptr ? problem("complete") : outcome::fine();
}

void byte_sink::use(std::FILE* stream, const std::string& name) {
    m_owned.reset();
    m_stream = stream;
    m_name = name;
}

outcome byte_sink::write(const void* bytes, std::size_t count) {
    if (std::fwrite(bytes, 1, count, m_stream) != count) return problem("write");
    return outcome::fine();
}

outcome byte_sink::write_again(const void* bytes, std::size_t count) {
    if (m_stream == nullptr || std::fseek(m_stream, 0, SEEK_SET) != 0) return outcome::fine();
    auto written = write(bytes, count);
    if (written.ok() && std::fseek(m_stream, 0, SEEK_END) != 0) return problem("complete");
    return written;
}

outcome byte_sink::close() {
    std::FILE* const stream = std::exchange(m_stream, nullptr);
    if (stream == nullptr) return outcome::fine();
    const bool is_complete =
        m_owned ? std::fclose(m_owned.release()) == 0 : std::fflush(stream) == 0;
    return is_complete ? outcome::fine() : problem("complete");
}

outcome byte_sink::close_on_disk() {
    if (m_stream == nullptr) return outcome::fine();
    if (std::fflush(m_stream) != 0) return problem("complete");
    const auto error = sync_to_disk(m_stream);
    auto closed = close();
    return error ? problem("complete", error) : closed;
}

}  // namespace pennywort::host
