// host/output/byte_sink.cpp - see the header for the contract.
#include "host/output/byte_sink.h"

#include <cerrno>
#include <system_error>

namespace pennywort::host {

// errno belongs to the call just made: nothing may come between.
outcome byte_sink::problem(const char* doing) const {
    const int error = errno;
    if (error == EPIPE) return outcome::reader_closed();
    return outcome::failed("cannot " + std::string(doing) + " " + m_name + ": " +
                           std::generic_category().message(error));
}

outcome byte_sink::open(const std::string& path) {
    m_name = path;
    m_owned.reset(std::fopen(path.c_str(), "wb"));
    m_stream = m_owned.get();
    if (!m_stream) return problem("write");
    // Frames are written whole; a buffer in between would only copy them.
    std::setvbuf(m_stream, nullptr, _IONBF, 0);
    return outcome::fine();
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

outcome byte_sink::close() {
    if (!m_stream) return outcome::fine();
    std::FILE* stream = m_stream;
    m_stream = nullptr;
    const bool owned = m_owned != nullptr;
    const int result = owned ? std::fclose(m_owned.release()) : std::fflush(stream);
    return result == 0 ? outcome::fine() : problem("complete");
}

}  // namespace pennywort::host
