// host/output/still_writer.cpp - see the header for the contract.
#include "host/output/still_writer.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "host/system/file_path.h"

namespace pennywort::host {

namespace {

// What is no plain file (a device) is not ours to remove.
void remove_file(const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(file_path(path), ignored)) {
        std::filesystem::remove(file_path(path), ignored);
    }
}

}  // namespace

still_writer::still_writer(std::unique_ptr<frame_writer> inner, std::string path)
    : m_inner(std::move(inner)), m_path(std::move(path)) {}

outcome still_writer::begin() { return m_inner->begin(); }

outcome still_writer::show(const picture_ptr& frame) {
    m_last = frame;
    return outcome::fine();
}

outcome still_writer::finish() {
    const picture_ptr last = std::move(m_last);
    if (!last) {
        // A file of that name stays as it was.
        static_cast<void>(m_inner->finish());
        return outcome::fine();
    }
    const auto shown = m_inner->show(last);
    const auto finished = m_inner->finish();
    if (!shown.ok() || !finished.ok()) remove_file(m_path);
    return shown.ok() ? finished : shown;
}

}  // namespace pennywort::host
