// fake_dnssd.cpp - see the header.
#include "tests/fakes/fake_dnssd.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <list>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "tests/fakes/fake_dnssd_socket.h"

namespace fake_dnssd {

namespace {

constexpr int k_not_running = -65563;
constexpr int k_invalid = -65549;

template <typename T>
struct c_memory {
    using value_type = T;
    c_memory() = default;
    template <typename U>
    explicit(false) c_memory(const c_memory<U>&) {}
    T* allocate(std::size_t count) { return static_cast<T*>(std::malloc(count * sizeof(T))); }
    void deallocate(T* there, std::size_t) { std::free(there); }
    bool operator==(const c_memory&) const { return true; }
};

using text = std::basic_string<char, std::char_traits<char>, c_memory<char>>;
using bytes = std::vector<unsigned char, c_memory<unsigned char>>;

text text_of(const char* given) { return given == nullptr ? "(null)" : given; }
text number(long value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%ld", value);
    return digits;
}

struct known_service {
    text name, type, domain, host;
    bool is_there;
    std::uint16_t port;
    bytes txt;
};

struct queued_change {
    change what;
    text name, type, domain;
    bool has_name, has_type, has_domain;
};

enum class kind { registration, browse, look_up };

struct planned_failure {
    int error = 0;
    int times = 0;
};

struct state {
    text calls;
    int live = 0;
    int waits = 0;
    bytes registered_txt;
    std::map<text, planned_failure, std::less<>, c_memory<std::pair<const text, planned_failure>>>
        failures;
    int highest_item = 0;
    bool is_next_socket_broken = false;
    bool is_all_in_one = false;
    void (*hook)(const char*, void*) = nullptr;
    void* hook_context = nullptr;
    std::list<known_service, c_memory<known_service>> services;
    int resolve_error = 0;
    int delay = 0;
    bool is_daemon_dead = false;
    std::list<_DNSServiceRef_t*, c_memory<_DNSServiceRef_t*>> references;
};

state& the() {
    alignas(state) static unsigned char place[sizeof(state)];
    static state& s_state = *new (place) state;
    return s_state;
}

// Notes the call and returns the error that was planned for it.
int begin(const char* function, const text& line) {
    state& all = the();
    all.calls += function + line + "\n";
    if (all.hook != nullptr) all.hook(function, all.hook_context);
    const bool needs_daemon =
        std::strcmp(function, "ProcessResult") != 0 && std::strcmp(function, "Item") != 0;
    if (all.is_daemon_dead && needs_daemon) return k_not_running;
    const auto planned = all.failures.find(text(function));
    if (planned == all.failures.end() || planned->second.times == 0) return 0;
    --planned->second.times;
    return planned->second.error;
}

}  // namespace
}  // namespace fake_dnssd

using namespace fake_dnssd;

struct _DNSServiceRef_t {
    kind what;
    int socket;
    bool is_socket_broken;
    text type;
    void* callback;
    void* context;
    std::deque<queued_change, c_memory<queued_change>> changes;
    known_service answer;
    int answer_error = 0;
    bool has_answer = false;
    int delay = 0;
};

namespace {

_DNSServiceRef_t* make_reference(kind what, const char* type, void* callback, void* context) {
    auto* const made = new (std::malloc(sizeof(_DNSServiceRef_t))) _DNSServiceRef_t{};
    made->what = what;
    made->socket = open_socket();
    made->is_socket_broken = the().is_next_socket_broken;
    the().is_next_socket_broken = false;
    made->type = type;
    made->callback = callback;
    made->context = context;
    the().references.push_back(made);
    ++the().live;
    return made;
}

const char* or_null(bool is_there, const text& given) { return is_there ? given.c_str() : nullptr; }

void deliver_change(_DNSServiceRef_t* reference) {
    const queued_change next = reference->changes.front();
    reference->changes.pop_front();
    const auto callback = reinterpret_cast<cBonjourLib::BrowseReply>(reference->callback);
    callback(reference, next.what.flags, next.what.interface_index, next.what.error,
             or_null(next.has_name, next.name), or_null(next.has_type, next.type),
             or_null(next.has_domain, next.domain), reference->context);
}

// As long as the callback leaves the reference there.
int deliver_all(_DNSServiceRef_t* reference) {
    const auto& all = the().references;
    while (std::find(all.begin(), all.end(), reference) != all.end() &&
           !reference->changes.empty()) {
        take_signal(reference->socket);
        deliver_change(reference);
    }
    return 0;
}

void deliver_answer(_DNSServiceRef_t* reference) {
    reference->has_answer = false;
    const known_service answer = reference->answer;
    const auto callback = reinterpret_cast<cBonjourLib::ResolveReply>(reference->callback);
    const auto swapped = static_cast<std::uint16_t>(answer.port << 8 | answer.port >> 8);
    if (reference->answer_error != 0) {
        callback(reference, 0, 0, reference->answer_error, nullptr, nullptr, 0, 0, nullptr,
                 reference->context);
        return;
    }
    callback(reference, 0, 1, 0, answer.name.c_str(), answer.host.c_str(), swapped,
             static_cast<std::uint16_t>(answer.txt.size()), answer.txt.data(), reference->context);
}

void look_up(_DNSServiceRef_t* reference, const char* name) {
    reference->answer_error = the().resolve_error;
    reference->has_answer = reference->answer_error != 0;
    for (const known_service& one : the().services) {
        const bool is_it = one.name == name && one.is_there;
        if (!is_it || reference->has_answer) continue;
        reference->answer = one;
        reference->has_answer = true;
    }
    reference->delay = the().delay;
    for (int i = 0; reference->has_answer && i <= reference->delay; ++i) signal(reference->socket);
}

}  // namespace

// --- The library

extern "C" {

FAKE_DNSSD_API int DNSServiceRegister(_DNSServiceRef_t** out, std::uint32_t flags,
                                      std::uint32_t interface_index, const char* name,
                                      const char* type, const char* domain, const char* host,
                                      std::uint16_t port, std::uint16_t txt_length, const void* txt,
                                      cBonjourLib::RegisterReply callback, void* context) {
    const auto swapped = static_cast<std::uint16_t>(port << 8 | port >> 8);
    const int error = begin(
        "Register",
        " flags=" + number(flags) + " interface=" + number(interface_index) +
            " name=" + text_of(name) + " type=" + text_of(type) + " domain=" + text_of(domain) +
            " host=" + text_of(host) + " port=" + number(swapped) + " txt=" + number(txt_length) +
            (callback == nullptr ? " no callback" : "") + (context == nullptr ? "" : " context"));
    if (error != 0) return error;
    const auto* const from = static_cast<const unsigned char*>(txt);
    the().registered_txt.assign(from, from + (txt == nullptr ? 0 : txt_length));
    *out = make_reference(kind::registration, type, reinterpret_cast<void*>(callback), context);
    return 0;
}

FAKE_DNSSD_API int DNSServiceBrowse(_DNSServiceRef_t** out, std::uint32_t flags,
                                    std::uint32_t interface_index, const char* type,
                                    const char* domain, cBonjourLib::BrowseReply callback,
                                    void* context) {
    const int error = begin("Browse", " flags=" + number(flags) + " interface=" +
                                          number(static_cast<std::int32_t>(interface_index)) +
                                          " type=" + text_of(type) + " domain=" + text_of(domain));
    if (error != 0) return error;
    *out = make_reference(kind::browse, type, reinterpret_cast<void*>(callback), context);
    return 0;
}

FAKE_DNSSD_API int DNSServiceResolve(_DNSServiceRef_t** out, std::uint32_t flags,
                                     std::uint32_t interface_index, const char* name,
                                     const char* type, const char* domain,
                                     cBonjourLib::ResolveReply callback, void* context) {
    const int error =
        begin("Resolve", " flags=" + number(flags) + " interface=" + number(interface_index) +
                             " name=" + text_of(name) + " type=" + text_of(type) +
                             " domain=" + text_of(domain));
    if (error != 0) return error;
    *out = make_reference(kind::look_up, type, reinterpret_cast<void*>(callback), context);
    look_up(*out, name);
    return 0;
}

FAKE_DNSSD_API int DNSServiceProcessResult(_DNSServiceRef_t* reference) {
    const int error = begin("ProcessResult", "");
    if (the().is_daemon_dead) return k_not_running;
    if (error != 0) return error;
    const bool has_change = !reference->changes.empty();
    if (!has_change && !reference->has_answer) {
        ++the().waits;
        return 0;
    }
    if (has_change && the().is_all_in_one) return deliver_all(reference);
    take_signal(reference->socket);
    if (reference->delay > 0) {
        --reference->delay;
        return 0;
    }
    // The callback may give the reference back.
    has_change ? deliver_change(reference) : deliver_answer(reference);
    return 0;
}

FAKE_DNSSD_API int DNSServiceRefSockFD(_DNSServiceRef_t* reference) {
    if (reference == nullptr) return -1;
    return reference->is_socket_broken ? -1 : reference->socket;
}

FAKE_DNSSD_API void DNSServiceRefDeallocate(_DNSServiceRef_t* reference) {
    static_cast<void>(begin("Deallocate", ""));
    --the().live;
    the().references.remove(reference);
    close_socket(reference->socket);
    reference->~_DNSServiceRef_t();
    std::free(reference);
}

FAKE_DNSSD_API int TXTRecordGetItemAtIndex(std::uint16_t length, const void* txt,
                                           std::uint16_t index, std::uint16_t key_size, char* key,
                                           std::uint8_t* value_length, const void** value) {
    constexpr int k_no_memory = -65539;
    if (const int error = begin("Item", ""); error != 0) return error;
    the().highest_item = std::max<int>(the().highest_item, index);
    const auto* at = static_cast<const unsigned char*>(txt);
    const auto* const end = at + length;
    for (std::uint16_t i = 0; at < end && i < index; ++i) at += *at + 1;
    if (at >= end || at + *at + 1 > end) return k_invalid;
    const auto* const item = reinterpret_cast<const char*>(at + 1);
    const std::size_t size = *at;
    const auto* const equals = static_cast<const char*>(std::memchr(item, '=', size));
    const std::size_t key_length =
        equals == nullptr ? size : static_cast<std::size_t>(equals - item);
    if (key_length >= key_size) return k_no_memory;
    std::memcpy(key, item, key_length);
    key[key_length] = '\0';
    *value = equals == nullptr ? nullptr : equals + 1;
    *value_length = equals == nullptr ? 0 : static_cast<std::uint8_t>(size - key_length - 1);
    return 0;
}

}  // extern "C"

// --- Its control

namespace fake_dnssd {

void reset() {
    state& all = the();
    const int live = all.live;
    const auto references = all.references;
    all = {};
    all.live = live;
    all.references = references;
}

const char* calls() { return the().calls.c_str(); }
void forget_calls() { the().calls.clear(); }
int live_references() { return the().live; }
int highest_item() { return the().highest_item; }
int waits() { return the().waits; }

const void* registered_txt(int* length) {
    *length = static_cast<int>(the().registered_txt.size());
    return the().registered_txt.data();
}

void fail(const char* function, int error, int times) { the().failures[function] = {error, times}; }

void break_next_socket() { the().is_next_socket_broken = true; }

void set_hook(void (*hook)(const char*, void*), void* context) {
    the().hook = hook;
    the().hook_context = context;
}

void set_service(const service& what) {
    const auto* const txt = static_cast<const unsigned char*>(what.txt);
    the().services.push_front({what.name, what.type, what.domain,
                               what.host == nullptr ? "" : what.host, what.host != nullptr,
                               what.port, bytes(txt, txt + what.txt_length)});
}

void forget_service(const char* name) {
    the().services.remove_if([name](const known_service& one) { return one.name == name; });
}

void delay_answers(int results) { the().delay = results; }

void set_resolve_error(int error) { the().resolve_error = error; }

bool tell(const char* browsed_type, const change& what) {
    bool is_told = false;
    for (_DNSServiceRef_t* const one : the().references) {
        if (one->what != kind::browse || one->type != browsed_type) continue;
        one->changes.push_back({what, text_of(what.name), text_of(what.type), text_of(what.domain),
                                what.name != nullptr, what.type != nullptr,
                                what.domain != nullptr});
        signal(one->socket);
        is_told = true;
    }
    return is_told;
}

void tell_all_in_one_result() { the().is_all_in_one = true; }

void kill_daemon() {
    the().is_daemon_dead = true;
    for (_DNSServiceRef_t* const one : the().references) signal(one->socket);
}

void start_daemon() { the().is_daemon_dead = false; }

}  // namespace fake_dnssd
