// fake_cef_ledger.h - the fake runtime's book of what it handed out and of the rules that were
// broken.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "cef_abi.h"

namespace fake {

class ledger {
public:
    static ledger& book();

    void broken(std::string rule);
    void late(std::string call);
    std::vector<std::string> violations();
    std::vector<std::string> late_calls();

    // Objects that the fake made, and references that it took of the caller's.
    void born(const char* kind);
    void died(const char* kind);
    void taken(const char* kind);
    void given_back(const char* kind);
    std::string leaks();
    std::string held();

    // Text buffers. A string that is passed in must have the length that it was made with.
    void string_made(const void* text, std::size_t length);
    void string_freed(const void* text);
    void check_string(const cef_string_t* text, const char* where);

    // Every function of the runtime comes after cef_api_hash.
    void hash_was_asked();
    void entered(const char* function);

private:
    std::mutex m_lock;
    bool m_hash_asked = false;
    std::vector<std::string> m_violations;
    std::vector<std::string> m_late_calls;
    std::map<std::string, long> m_alive;
    std::map<std::string, long> m_held;
    std::map<const void*, std::size_t> m_strings;
};

}  // namespace fake
