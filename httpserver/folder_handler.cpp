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

class file_body final : public cHttpBody {
public:
    explicit file_body(std::unique_ptr<pennywort::folder_file> file) : m_file(std::move(file)) {}

    std::int64_t Size() override { return m_file->size(); }
    std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
        // It may have grown since; what is told of its size has been sent already.
        const std::int64_t left = Size() - offset;
        return left <= 0 ? 0 : m_file->read_at(offset, into, capped(size, left));
    }

private:
    std::unique_ptr<pennywort::folder_file> m_file;
};

zString extension_of(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return zString(dot == std::string::npos ? std::string() : name.substr(dot + 1));
}

zStatus send_head(zSocket* socket, const zString& extension, std::int64_t size) {
    std::string head;
    pennywort::append_head(head, 200, pennywort::after_answer::keep_alive,
                           cHttpFolderHandler::ContentTypeOf(extension.CString()), size);
    if (size > 0) socket->MoreFollows();
    return socket->Send(head.data(), static_cast<std::int32_t>(head.size()), 0,
                        pennywort::k_send_timeout_ms);
}

// Sends a body on the spot, for callers that are no server.
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

std::unique_ptr<cHttpBody> cHttpFolderHandler::open(const zString& path, zString& extension) const {
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
    extension = extension_of(names->back());
    return std::make_unique<file_body>(std::move(file));
}

bool cHttpFolderHandler::CanHandle(std::int32_t method, const zString& path, const zString&,
                                   const zString&, const char*) {
    zString extension;
    return method == k_get && open(path, extension) != nullptr;
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
    zString extension;
    auto file = open(path, extension);
    if (file == nullptr) {
        // It was there when the server asked.
        const std::string_view page = pennywort::not_found_page();
        status = SendAnswer(socket, 404, "text/html", page.data(),
                            static_cast<std::int64_t>(page.size()));
        return nullptr;
    }
    status = send_head(socket, extension, file->Size());
    if (status != pennywort::k_ok) return nullptr;
    return file;
}
