// host/output/replacing_writer.cpp - see the header for the contract.
#include "host/output/replacing_writer.h"

#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "host/output/film_check.h"
#include "host/system/file_path.h"

namespace pennywort::host {

namespace fs = std::filesystem;

namespace {

// The user knows the file by the name that was given.
std::string with_name(std::string text, const std::string& part, const std::string& name) {
    for (auto at = text.find(part); at != text.npos; at = text.find(part, at + name.size())) {
        text.replace(at, part.size(), name);
    }
    return text;
}

}  // namespace

replacing_writer::replacing_writer(output_target target, maker make)
    : m_target(std::move(target)), m_make(std::move(make)) {}

replacing_writer::~replacing_writer() {
    m_inner.reset();  // whoever still writes the part
    if (!m_is_settled) remove_part();
}

outcome replacing_writer::begin() {
    if (auto possible = can_be_written(m_target.path); !possible.ok()) return possible;
    std::error_code error;
    m_was_there = fs::exists(file_path(m_target.path), error);
    m_file = replacement_of(m_target.path);
    output_target made = m_target;
    if (m_file) made.path = m_file->part;
    m_inner = m_make(made);
    const auto begun = m_inner->begin();
    if (begun.ok()) return begun;
    m_inner.reset();
    remove_part();
    if (begun.what() != outcome::kind::failed || !m_file) return begun;
    return outcome::failed(with_name(begun.text(), m_file->part, m_target.path));
}

outcome replacing_writer::show(const picture_ptr& frame) {
    const auto shown = m_inner->show(frame);
    m_has_frame = m_has_frame || shown.ok();
    return told(shown);
}

outcome replacing_writer::hear(std::span<const float> samples) {
    return told(m_inner->hear(samples));
}

outcome replacing_writer::complete() {
    if (m_inner == nullptr || std::exchange(m_is_complete, true)) return outcome::fine();
    const auto completed = told(m_inner->finish());
    return completed.ok() ? look_whether_there() : completed;
}

// A program that still has a file open writes on after its name, or its folder, has gone.
outcome replacing_writer::look_whether_there() {
    std::error_code error;
    if (!m_file || !m_has_frame || m_has_failed || fs::exists(file_path(m_file->part), error)) {
        return outcome::fine();
    }
    m_has_failed = true;
    return outcome::failed("cannot write " + m_target.path + ": the new file, " + m_file->part +
                           ", is not there any more; it or its folder was removed or moved while " +
                           "it was written");
}

outcome replacing_writer::finish() {
    const auto completed = complete();
    const auto settled = settle();
    return completed.ok() ? settled : completed;
}

outcome replacing_writer::settle() {
    if (!m_file || std::exchange(m_is_settled, true)) return outcome::fine();
    std::error_code error;
    const bool has_part = fs::exists(file_path(m_file->part), error);
    const bool is_wanted = m_has_frame && !(m_has_failed && m_was_there);
    if (has_part && is_wanted) return put_in_place(*m_file);
    remove_part();
    return look_whether_there();
}

void replacing_writer::remove_part() const {
    std::error_code ignored;
    if (m_file) fs::remove(file_path(m_file->part), ignored);
}

// Only the first failure counts, and only it says what becomes of the file.
outcome replacing_writer::told(const outcome& result) {
    if (result.what() != outcome::kind::failed || !m_file) return result;
    std::string text = with_name(result.text(), m_file->part, m_target.path);
    if (!std::exchange(m_has_failed, true)) text += fate_of_file();
    return outcome::failed(std::move(text));
}

std::string replacing_writer::fate_beside_failure() const {
    return m_file && m_was_there ? m_target.path + " stays as it was" : std::string();
}

// Of a film without its index nothing can be had any more.
std::string replacing_writer::fate_of_file() const {
    if (m_was_there) return "; the file that was there stays";
    const bool has_index = m_target.kind == output_kind::mp4 || m_target.kind == output_kind::mov;
    std::error_code error;
    const auto part = file_path(m_file->part);
    if (!has_index || !fs::is_regular_file(part, error)) return {};
    const auto size = fs::file_size(part, error);
    std::ifstream film(part, std::ios::binary);
    if (error || is_whole_film(m_target.kind, film, size)) return {};
    return "; what there is of it cannot be played";
}

}  // namespace pennywort::host
