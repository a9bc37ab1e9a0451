// httpserver/folder_handler.cpp - the files of a folder, of include/httpserver.h.
#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/http/http_date.h"
#include "core/limits.h"
#include "core/statuses.h"
#include "core/text/ascii.h"
#include "httpserver.h"
#include "httpserver/answer.h"
#include "httpserver/content_types.h"
#include "httpserver/file_reply.h"
#include "httpserver/folder_file.h"
#include "httpserver/url_path.h"

using pennywort::httpserver::folder_file;
using pennywort::httpserver::no_file;

namespace {

constexpr const char* k_index = "index.html";

std::int32_t capped(std::int32_t size, std::int64_t left) {
    return static_cast<std::int32_t>(std::min<std::int64_t>(size, left));
}

// The whole response: sending its head at once would wait for a peer that takes nothing.
class file_answer final : public cHttpBody {
public:
    file_answer(std::string head, std::unique_ptr<folder_file> file)
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
        // The file may have grown since its size was sent.
        const std::int64_t left = m_file->size() - offset;
        return left <= 0 || size == 0 ? 0 : m_file->read_at(offset, into, capped(size, left));
    }

    const std::string m_head;
    const std::unique_ptr<folder_file> m_file;
};

zString extension_of(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return zString(dot == std::string::npos ? std::string() : name.substr(dot + 1));
}

std::string head_of(const zString& extension, std::int64_t size) {
    std::string head;
    pennywort::httpserver::append_head(head, 200, pennywort::httpserver::after_answer::keep_alive,
                                       cHttpFolderHandler::ContentTypeOf(extension.CString()),
                                       size);
    return head;
}

// Sends an answer within the call, for callers other than a server.
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

// What a path below the prefix leads to: names, the last of them a file's. Nothing for a path that
// is not this handler's.
std::optional<std::vector<std::string>> names_of(std::string_view prefix, std::string_view path) {
    if (path.substr(0, prefix.size()) != prefix) return std::nullopt;
    const std::string_view rest = path.substr(prefix.size());
    // "/static" is no prefix of "/statics".
    const bool is_cut_right =
        rest.empty() || rest.front() == '/' || prefix.empty() || prefix.back() == '/';
    auto names = pennywort::httpserver::path_names(rest);
    if (!is_cut_right || !names) return std::nullopt;
    if (rest.empty() || rest.back() == '/') names->emplace_back(k_index);
    return names;
}

// A part of a file, as a body.
class file_range final : public cHttpBody {
public:
    file_range(std::unique_ptr<folder_file> file, std::int64_t begin, std::int64_t length)
        : m_file(std::move(file)), m_begin(begin), m_length(length) {}

    std::int64_t Size() override { return m_length; }
    std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
        return m_file->read_at(m_begin + offset, into, capped(size, m_length - offset));
    }

private:
    const std::unique_ptr<folder_file> m_file;
    const std::int64_t m_begin;
    const std::int64_t m_length;
};

std::optional<std::string_view> header_of(const cHttpRequest& request, const char* name) {
    if (!request.HasHeader(name)) return std::nullopt;
    return request.Header(name);
}

// A list may go over several lines; what one of them names counts as much as what the first does.
std::optional<std::string> list_of(const cHttpRequest& request, std::string_view name) {
    std::optional<std::string> list;
    for (std::int32_t i = 0; i < request.HeaderCount(); ++i) {
        if (!pennywort::text::equal_ignoring_case(request.HeaderName(i), name)) continue;
        if (!list) {
            list.emplace();
        } else {
            list->append(", ");
        }
        list->append(request.HeaderValue(i));
    }
    return list;
}

// A range is for GET alone.
pennywort::httpserver::file_question question_of(const cHttpRequest& request) {
    const bool is_get = request.MethodName() == "GET";
    const auto range = is_get ? header_of(request, "Range") : std::nullopt;
    return {list_of(request, "If-Match"),
            header_of(request, "If-Unmodified-Since"),
            list_of(request, "If-None-Match"),
            header_of(request, "If-Modified-Since"),
            range,
            header_of(request, "If-Range")};
}

std::int64_t now_in_seconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

void set_header(cHttpAnswer& answer, const char* name, const std::string& value) {
    answer.SetHeader(name, value.c_str());
}

// The server asks a browser for the folder's own address, so that its page finds what it names.
void redirect(const cHttpRequest& request, cHttpAnswer& answer) {
    std::string target = std::string(request.Path().View()) + '/';
    // Two slashes in front would name another host.
    target.erase(0, target.find_first_not_of('/') - 1);
    const std::string_view query = request.Query().View();
    if (!query.empty()) target.append("?").append(query);
    answer.SetStatus(301);
    set_header(answer, "Location", target);
}

void answer_with(std::unique_ptr<folder_file> file, const zString& type,
                 const cHttpRequest& request, cHttpAnswer& answer) {
    using pennywort::http::date_text;
    const pennywort::httpserver::file_facts facts{file->size(), file->modified()};
    const std::int64_t now = now_in_seconds();
    const auto reply = pennywort::httpserver::reply_to(question_of(request), facts, now);
    const std::string size = std::to_string(facts.size);
    answer.SetStatus(reply.status);
    set_header(answer, "Accept-Ranges", "bytes");
    set_header(answer, "ETag", pennywort::httpserver::etag_of(facts));
    set_header(answer, "Last-Modified",
               date_text(pennywort::httpserver::last_modified(facts, now)));
    if (reply.status == 416) set_header(answer, "Content-Range", "bytes */" + size);
    if (reply.status == 206) {
        set_header(answer, "Content-Range",
                   "bytes " + std::to_string(reply.begin) + '-' +
                       std::to_string(reply.begin + reply.length - 1) + '/' + size);
    }
    if (reply.status != 200 && reply.status != 206) return;
    answer.SetBody(type.CString(),
                   std::make_unique<file_range>(std::move(file), reply.begin, reply.length));
}

}  // namespace

cHttpFolderHandler::cHttpFolderHandler(const zString& folder, const zString& prefix)
    : m_folder(folder), m_prefix(prefix) {}

cHttpFolderHandler::~cHttpFolderHandler() = default;

const char* cHttpFolderHandler::ContentTypeOf(const char* extension) {
    return pennywort::httpserver::content_type_of(extension == nullptr ? "" : extension);
}

std::unique_ptr<cHttpBody> cHttpFolderHandler::open(const zString& path) const {
    const auto names = names_of(m_prefix.View(), path.View());
    if (!names) return nullptr;
    no_file why{};
    auto file = folder_file::open(std::string(m_folder.View()), *names, why);
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
        // The file existed when the server called CanHandle.
        const std::string_view page = pennywort::httpserver::not_found_page();
        status = SendAnswer(socket, 404, "text/html", page.data(),
                            static_cast<std::int64_t>(page.size()));
        return nullptr;
    }
    status = pennywort::k_ok;
    return answer;
}

bool cHttpFolderHandler::CanHandleRequest(const cHttpRequest& request) {
    if (!request.IsStrict()) return cHttpHandler::CanHandleRequest(request);
    if (request.Method() != k_get) return false;
    const auto names = names_of(m_prefix.View(), request.Path().View());
    if (!names) return false;
    const std::string folder(m_folder.View());
    no_file why{};
    // When the system lacks a descriptor or memory, the file may be there: without this the next
    // handler would say that it does not exist.
    return folder_file::open(folder, *names, why) != nullptr || why == no_file::is_short ||
           folder_file::is_folder(folder, *names);
}

zStatus cHttpFolderHandler::HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) {
    if (!request.IsStrict()) return cHttpHandler::HandleRequest(request, answer);
    const auto names = names_of(m_prefix.View(), request.Path().View());
    if (!names) return pennywort::k_failed;
    const std::string folder(m_folder.View());
    no_file why{};
    auto file = folder_file::open(folder, *names, why);
    if (file != nullptr) {
        const zString type(ContentTypeOf(extension_of(names->back()).CString()));
        answer_with(std::move(file), type, request, answer);
    } else if (why == no_file::is_short) {
        answer.SetStatus(503);
        answer.SetText("text/html", pennywort::httpserver::status_page(503));
    } else if (folder_file::is_folder(folder, *names)) {
        redirect(request, answer);
    } else {
        // The file existed when the server called CanHandle.
        answer.SetStatus(404);
        answer.SetText("text/html", pennywort::httpserver::not_found_page());
    }
    return pennywort::k_ok;
}
