// client_bench.cpp - one run of our client, or of plain libcurl doing the same.
//
// usage: http_client_bench own|curl get|post THREADS SECONDS URL   requests a second
//        http_client_bench own|curl download|sink URL              MB/s and peak memory
//        http_client_bench own|curl first URL [CAFILE]             microseconds of the first
//        request
//
// libcurl reuses one handle for each thread and adds nothing to a request that ours does not.
// Prints the figures in JSON.
#include <curl/curl.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "httpclient.h"
#include "loam/buffer.h"

namespace {

using clock_type = std::chrono::steady_clock;

const std::string k_body(1024, 'b');

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

long peak_mb() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

// Makes requests to one URL; each gives the bytes of its response, which are dropped or collected.
class client {
public:
    virtual ~client() = default;
    virtual std::size_t request(bool is_post) = 0;
};

class own_client final : public client {
public:
    own_client(const std::string& url, const std::string& ca_file, bool is_collecting)
        : m_url(url), m_is_collecting(is_collecting) {
        cHttpSessionSettings settings;
        settings.tlsByScheme = true;
        settings.caFile = ca_file;
        m_session->SetSettings(settings);
    }
    std::size_t request(bool is_post) override {
        m_session->Configure(is_post ? cHttpSession::k_post : cHttpSession::k_get, m_url.c_str(),
                             30);
        const void* const body = is_post ? k_body.data() : nullptr;
        const auto length = static_cast<std::uint32_t>(is_post ? k_body.size() : 0);
        const auto drop = [](zBuffer&) { return true; };
        const long result = m_is_collecting
                                ? m_session->Request_Begin(&m_sink, nullptr, body, length)
                                : m_session->Request_BeginWithCallback(drop, nullptr, body, length);
        if (result != 0) return 0;
        m_session->Request_BlockForResponse();
        if (m_session->Response_StatusCode(nullptr) != 0) return 0;
        return static_cast<std::size_t>(m_session->Request_ContentBytesRead64());
    }

private:
    const std::string m_url;
    const bool m_is_collecting;
    const std::shared_ptr<cHttpSession> m_session = cHttpSession::Factory();
    zBuffer m_sink;
};

class curl_client final : public client {
public:
    curl_client(const std::string& url, const std::string& ca_file, bool is_collecting)
        : m_easy(::curl_easy_init()), m_is_collecting(is_collecting) {
        m_headers = ::curl_slist_append(m_headers, "Accept:");
        m_headers = ::curl_slist_append(m_headers, "Content-Type:");
        ::curl_easy_setopt(m_easy, CURLOPT_URL, url.c_str());
        ::curl_easy_setopt(m_easy, CURLOPT_USERAGENT, "Nimb Software Client");
        ::curl_easy_setopt(m_easy, CURLOPT_HTTPHEADER, m_headers);
        ::curl_easy_setopt(m_easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
        ::curl_easy_setopt(m_easy, CURLOPT_NOSIGNAL, 1L);
        ::curl_easy_setopt(m_easy, CURLOPT_WRITEFUNCTION, &curl_client::on_body);
        ::curl_easy_setopt(m_easy, CURLOPT_WRITEDATA, this);
        if (!ca_file.empty()) ::curl_easy_setopt(m_easy, CURLOPT_CAINFO, ca_file.c_str());
    }
    ~curl_client() override {
        ::curl_easy_cleanup(m_easy);
        ::curl_slist_free_all(m_headers);
    }
    curl_client(const curl_client&) = delete;
    curl_client& operator=(const curl_client&) = delete;

    std::size_t request(bool is_post) override {
        m_received = 0;
        m_sink.clear();
        if (is_post) {
            ::curl_easy_setopt(m_easy, CURLOPT_POSTFIELDS, k_body.data());
            ::curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(k_body.size()));
        }
        return ::curl_easy_perform(m_easy) == CURLE_OK ? m_received : 0;
    }

private:
    static std::size_t on_body(char* bytes, std::size_t size, std::size_t count, void* self) {
        auto& client = *static_cast<curl_client*>(self);
        client.m_received += size * count;
        if (client.m_is_collecting) client.m_sink.append(bytes, size * count);
        return size * count;
    }

    CURL* m_easy;
    curl_slist* m_headers = nullptr;
    const bool m_is_collecting;
    std::string m_sink;
    std::size_t m_received = 0;
};

std::unique_ptr<client> make(const std::string& who, const std::string& url,
                             const std::string& ca_file = {}, bool is_collecting = true) {
    if (who == "own") return std::make_unique<own_client>(url, ca_file, is_collecting);
    return std::make_unique<curl_client>(url, ca_file, is_collecting);
}

int fail(const char* what) {
    std::fprintf(stderr, "http_client_bench: %s\n", what);
    return 1;
}

int rate(const std::string& who, bool is_post, int threads, double seconds,
         const std::string& url) {
    std::atomic<bool> is_over{false};
    std::atomic<long> done{0};
    std::atomic<long> failed{0};
    std::vector<std::thread> all;
    const auto start = clock_type::now();
    for (int i = 0; i < threads; ++i) {
        all.emplace_back([&] {
            const auto requester = make(who, url);
            long mine = 0;
            while (!is_over) requester->request(is_post) == 1024 ? ++mine : ++failed;
            done += mine;
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    is_over = true;
    for (std::thread& each : all) each.join();
    const double passed = seconds_since(start);
    if (failed != 0) return fail("requests failed");
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const double cpu_us = 1e6 * static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                          static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    std::printf("{\"rate\": %.1f, \"cpu_us\": %.3f}\n", static_cast<double>(done) / passed,
                cpu_us / static_cast<double>(done));
    return 0;
}

int download(const std::string& who, const std::string& url, bool is_collecting) {
    const auto requester = make(who, url, {}, is_collecting);
    const auto start = clock_type::now();
    const std::size_t received = requester->request(false);
    const double passed = seconds_since(start);
    if (received == 0) return fail("the download failed");
    std::printf("{\"rate\": %.1f, \"peak_mb\": %ld}\n",
                static_cast<double>(received) / 1e6 / passed, peak_mb());
    return 0;
}

int first(const std::string& who, const std::string& url, const std::string& ca_file) {
    const auto start = clock_type::now();
    const auto requester = make(who, url, ca_file);
    const std::size_t received = requester->request(false);
    const double passed = seconds_since(start);
    if (received == 0) return fail("the request failed");
    std::printf("{\"microseconds\": %.1f}\n", passed * 1e6);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() < 3) return fail("what to do is missing");
    const std::string& what = words[1];
    if (what == "download" || what == "sink") return download(words[0], words[2], what == "sink");
    if (what == "first") return first(words[0], words[2], words.size() > 3 ? words[3] : "");
    if (words.size() < 5) return fail("threads, seconds or URL are missing");
    return rate(words[0], what == "post", std::atoi(words[2].c_str()), std::atof(words[3].c_str()),
                words[4]);
}
