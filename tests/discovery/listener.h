// listener.h - an observer of cBonjour's that keeps what it hears.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "loam/observer.h"
#include "loam/record.h"

namespace pennywort::tests {

constexpr char k_http[] = "_http._tcp.";
constexpr std::uint64_t k_what = 0x77686174;
constexpr std::int32_t k_found = 0x63426A2B;
constexpr std::int32_t k_gone = 0x63426A2D;

class listener {
public:
    listener()
        : m_id(zObserverHandler::NewCode()),
          m_handler(m_id,
                    [this](const zRecord& record, std::uint64_t) { m_heard.push_back(record); }) {}

    std::int32_t id() const { return m_id; }
    const std::vector<zRecord>& heard() const { return m_heard; }
    // "+name" and "-name" for each that was found or is gone, with a space between.
    std::string names() const {
        std::string all;
        for (const zRecord& one : m_heard) all += (all.empty() ? "" : " ") + sign_of(one);
        return all;
    }
    // How often it heard "+name" or "-name".
    std::ptrdiff_t count(const std::string& sign) const {
        return std::count_if(m_heard.begin(), m_heard.end(),
                             [&](const zRecord& one) { return sign_of(one) == sign; });
    }
    void forget() { m_heard.clear(); }

private:
    static std::string sign_of(const zRecord& one) {
        const char* const what = one.AsInt32(k_what, 0) == k_found ? "+" : "-";
        return what + std::string(one.AsString("name", ""));
    }

    std::int32_t m_id;
    std::vector<zRecord> m_heard;
    zObserverHandler m_handler;
};

}  // namespace pennywort::tests
