// curl_lines.h - the connections of the process to HTTP servers, kept between requests. Built where
// libcurl is: WinHTTP keeps its own.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace pennywort::httpclient {

struct curl_multi_end {
    void operator()(CURLM* multi) const { ::curl_multi_cleanup(multi); }
};
struct curl_easy_end {
    void operator()(CURL* easy) const { ::curl_easy_cleanup(easy); }
};

struct curl_url_end {
    void operator()(CURLU* url) const { ::curl_url_cleanup(url); }
};

// A list of header lines, as libcurl takes it.
class curl_header_list {
public:
    curl_header_list() = default;
    curl_header_list(const curl_header_list&) = delete;
    curl_header_list& operator=(const curl_header_list&) = delete;
    ~curl_header_list() { clear(); }

    void clear() { ::curl_slist_free_all(std::exchange(m_first, nullptr)); }
    // False without memory.
    bool add(const std::string& line);
    curl_slist* get() const { return m_first; }

private:
    curl_slist* m_first = nullptr;
};

// What the handle of a line has been told, and need not be told again: most requests are like the
// one before, and to tell libcurl all of it takes a tenth of a short one's time.
struct curl_told {
    bool is_set_up = false;  // what no order changes
    void* user = nullptr;    // of the callbacks
    long connect_ms = -1;
    std::string url;
    bool is_plain_get = false;  // nothing of a body
    bool has_cookies = true;    // perhaps
    bool has_headers = false;   // for this block, of a request with a body or without one
    bool is_with_body = false;
    std::string block;
};

// A transfer's two handles of libcurl, with the connections that earlier transfers have left in
// them. Used by one thread at a time.
struct curl_line {
    // Both last longer than the handle that shows them. The URL is one that libcurl has taken apart
    // once: it would do so for each request, which is a twentieth of its work.
    std::unique_ptr<CURLU, curl_url_end> url{::curl_url()};
    curl_header_list headers;
    // The transfer's is ended first.
    std::unique_ptr<CURLM, curl_multi_end> multi;
    std::unique_ptr<CURL, curl_easy_end> easy;
    // Whom it serves: everything that its user has set for good.
    std::string destination;
    curl_told told;
};

// Sessions open and close their handles for each request, and libcurl forbids two threads in one
// connection cache. So a request borrows a whole line, preferably the one that its thread has given
// back, and gives it back. Idle lines are bounded in number and age.
namespace curl_lines {

// Null when libcurl has no memory. Any thread.
std::unique_ptr<curl_line> borrow(const std::string& destination);
// The line's transfer is out of its multi handle. `now` is a test's. Any thread.
void give_back(std::unique_ptr<curl_line> line,
               std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());

}  // namespace curl_lines

}  // namespace pennywort::httpclient
