// curl_lines.h - the connections of the process to HTTP servers, kept between requests. Built where
// libcurl is: WinHTTP keeps its own.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <string>

namespace pennywort::httpclient {

struct curl_multi_end {
    void operator()(CURLM* multi) const { ::curl_multi_cleanup(multi); }
};
struct curl_easy_end {
    void operator()(CURL* easy) const { ::curl_easy_cleanup(easy); }
};

// A transfer's two handles of libcurl, with the connections that earlier transfers have left in
// them. Used by one thread at a time.
struct curl_line {
    // The transfer's is ended first.
    std::unique_ptr<CURLM, curl_multi_end> multi;
    std::unique_ptr<CURL, curl_easy_end> easy;
    // Whom it serves: everything that its user has set for good.
    std::string destination;
    bool is_set_up = false;
    std::chrono::steady_clock::time_point idle_since;
};

// Sessions open and close their handles for each request, and libcurl forbids two threads in one
// connection cache. So a request borrows a whole line, preferably one that has been connected to
// its destination before, and gives it back. Idle lines are bounded in number and age.
namespace curl_lines {

// Null when libcurl has no memory. Any thread.
std::unique_ptr<curl_line> borrow(const std::string& destination);
// The line's transfer is out of its multi handle. Any thread.
void give_back(std::unique_ptr<curl_line> line);
// Closes what is idle. Any thread.
void close_idle();

}  // namespace curl_lines

}  // namespace pennywort::httpclient
