// core/logger.cpp - cLogger of include/logger.h. What cannot be written is not reported: traffic
// must not fail for the sake of its transcript.
#include "logger.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "loam/file_stream.h"

namespace {

constexpr std::int32_t k_width = 96;
constexpr char k_dashes[k_width + 1] =
    "------------------------------------------------"
    "------------------------------------------------";
constexpr char k_cut[] = "\n\n... message truncated ....\n";
constexpr std::int32_t k_cut_length = 29;
static_assert(sizeof k_cut == k_cut_length + 1);

std::int32_t length_of(const char* text) {
    if (text == nullptr) return 0;
    constexpr std::size_t k_most = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::min(std::strlen(text), k_most));
}

}  // namespace

cLogger::cLogger(const char* path, std::int32_t maximum) : m_path(path), m_maximum(maximum) {
    Start();
}

cLogger::~cLogger() { Close(); }

std::int32_t cLogger::AddRef() { return ++std::atomic_ref(m_references); }

std::int32_t cLogger::Release() {
    const std::int32_t left = --std::atomic_ref(m_references);
    if (left == 0) delete this;
    return left;
}

void cLogger::Start() {
    Close();
    // Opened even when that fails: writing to it then does nothing.
    m_file = new (std::nothrow) zFileStream(m_path.CString(), zFileStream::k_create, false);
    if (m_file != nullptr) m_file->Open();
}

void cLogger::Close() {
    if (m_file == nullptr) return;
    write("\n", 1);
    write(k_dashes, k_width);
    m_file->Close();
    delete std::exchange(m_file, nullptr);
}

bool cLogger::HasFailed() const { return m_file != nullptr && m_file->HasFailed(); }

const char* cLogger::FilePath() const { return m_path.CString(); }

void cLogger::RemoveFile() { zFileStream::RemoveFile(m_path.CString()); }

void cLogger::Separator(const char* label) {
    if (m_file == nullptr) return;
    write("\n", 1);
    if (label == nullptr) {
        write(k_dashes, k_width);
    } else {
        const std::int32_t length = length_of(label);
        const std::int32_t half = (k_width - length) / 2;
        write(k_dashes, half);
        write(label, length);
        write(k_dashes, half);
    }
    write("\n", 1);
}

void cLogger::Sent(const char* data, std::int32_t length) { data_entry(" SENT ", data, length); }

void cLogger::Received(const char* data, std::int32_t length) {
    data_entry(" RECEIVED ", data, length);
}

void cLogger::Message(const char* label, const char* message) {
    data_entry(label, message, length_of(message));
}

void cLogger::Error(std::int32_t code, const char* message) {
    char label[32];
    std::snprintf(label, sizeof label, " ERROR %d ", static_cast<int>(code));
    Message(label, message);
}

void cLogger::data_entry(const char* label, const char* data, std::int32_t length) {
    if (m_file == nullptr) return;
    const std::int32_t limit = std::min(m_maximum, length);
    Separator(label);
    if (data != nullptr) write(data, limit);
    if (limit != length) write(k_cut, k_cut_length);
}

// A negative length, from a negative maximum or a label longer than the line, stands for nothing:
// taken as it is it would read past the end of what the caller has.
void cLogger::write(const char* data, std::int32_t length) {
    if (length > 0) m_file->Write(data, static_cast<std::uint32_t>(length), nullptr);
}
