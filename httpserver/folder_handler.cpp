// httpserver/folder_handler.cpp - the files of a folder, of include/httpserver.h.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "core/statuses.h"
#include "httpserver.h"
#include "httpserver/answer.h"
#include "httpserver/content_types.h"
#include "httpserver/folder_file.h"
#include "httpserver/url_path.h"

namespace {

constexpr const char* k_index = "index.html";

std::int32_t capped(std::int32_t size, std::int64_t left) {
    return static_cast<std::int32_t>(std::min<std::int64_t>(size, left));
}

// The whole answer. To send its head on the spot would wait for a peer that takes nothing.
class file_answer final : public cHttpBody {
public:
    file_answer(std::string head, std::unique_ptr<pennywort::folder_file> file)
        : m_head(std::move(head)), m_file(std::move(file)) {}

    std::int64_t Size() override { return head_size() + m_file->size(); }
    std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
        if (offset >= head_size()) return read_file(offset - head_size(), into, size);
        const auto begin = static_cast<std::size_t>(offset);
        const auto count =
            static_cast<std::int32_t>(m_head.copy(into, static_cast<std::size_t>(size), begin));
        return count + std::max(read_file(0, into + count, size - count), 0);
    }

private:
    std::int64_t head_size() const { return static_cast<std::int64_t>(m_head.size()); }
    std::int32_t read_file(std::int64_t offset, char* into, std::int32_t size) {
        // It may have grown since; what is told of its size has been sent already.
        const std::int64_t left = m_file->size() - offset;
        return left <= 0 || size == 0 ? 0 : m_file->read_at(offset, into, capped(size, left));
    }

    const std::string m_head;
    const std::unique_ptr<pennywort::folder_file> m_file;
};

zString extension_of(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return zString(dot == std::string::npos ? std::string() : name.substr(dot + 1));
}

std::string head_of(const zString& extension, std::int64_t size) {
    std::string head;
    pennywort::append_head(head, 200, pennywort::after_answer::keep_alive,
                           cHttpFolderHandler::ContentTypeOf(extension.CString()), size);
    return head;
}

// Sends an answer on the spot, for callers that are no server.
zStatus send_body(zSocket* socket, cHttpBody& body) {
    std::vector<char> piece(pennywort::k_http_piece_bytes);
    zStatus status = pennywort::k_ok;
    for (std::int64_t sent = 0; status == pennywort::k_ok && sent < body.Size();) {
        const std::int32_t count =
            body.ReadAt(sent, piece.data(), static_cast<std::int32_t>(piece.size()));
        if (count <= 0) return pennywort::k_failed;
        status = cHttpHandler::SendBytes(socket, piece.data(), count);
        sent += count;
    }
    return status;
}

}  // namespace

cHttpFolderHandler::cHttpFolderHandler(const zString& folder, const zString& prefix)
    : m_folder(folder), m_prefix(prefix) {}

cHttpFolderHandler::~cHttpFolderHandler() = default;

const char* cHttpFolderHandler::ContentTypeOf(const char* extension) {
    return pennywort::content_type_of(extension == nullptr ? "" : extension);
}

std::unique_ptr<cHttpBody> cHttpFolderHandler::open(const zString& path) const {
    const std::string_view whole = path.View();
    const std::string_view prefix = m_prefix.View();
    if (whole.substr(0, prefix.size()) != prefix) return nullptr;
    const std::string_view rest = whole.substr(prefix.size());
    // "/static" is no prefix of "/statics".
    const bool is_cut_right =
        rest.empty() || rest.front() == '/' || prefix.empty() || prefix.back() == '/';
    auto names = pennywort::path_names(rest);
    if (!is_cut_right || !names) return nullptr;
    if (rest.empty() || rest.back() == '/') names->emplace_back(k_index);
    auto file = pennywort::folder_file::open(std::string(m_folder.View()), *names);
    if (file == nullptr) return nullptr;
    auto head = head_of(extension_of(names->back()), file->size());
    return std::make_unique<file_answer>(std::move(head), std::move(file));
}

bool cHttpFolderHandler::CanHandle(std::int32_t method, const zString& path, const zString&,
                                   const zString&, const char*) {
    return method == k_get && open(path) != nullptr;
}

zStatus cHttpFolderHandler::Handle(zSocket* socket, std::int32_t method, const zString& path,
                                   const zString& extension, const zString& query,
                                   const char* body) {
    zStatus status = pennywort::k_failed;
    const auto file = HandleInPieces(socket, method, path, extension, query, body, status);
    if (file == nullptr || status != pennywort::k_ok) return status;
    return send_body(socket, *file);
}

std::unique_ptr<cHttpBody> cHttpFolderHandler::HandleInPieces(zSocket* socket, std::int32_t,
                                                              const zString& path, const zString&,
                                                              const zString&, const char*,
                                                              zStatus& status) {
    status = pennywort::k_failed;
    if (socket == nullptr) return nullptr;
    auto answer = open(path);
    if (answer == nullptr) {
        // It was there when the server asked.
        const std::string_view page = pennywort::not_found_page();
        status = SendAnswer(socket, 404, "text/html", page.data(),
                            static_cast<std::int64_t>(page.size()));
        return nullptr;
    }
    status = pennywort::k_ok;
    return answer;
}
