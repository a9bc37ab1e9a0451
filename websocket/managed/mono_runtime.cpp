// websocket/managed/mono_runtime.cpp - see the header for the contract.
#include "websocket/managed/mono_runtime.h"

#include <mutex>
#include <stdexcept>
#include <utility>

#include "core/run/guarded.h"
#include "loam/library.h"
#include "loam/ready_mutex.h"
#include "websocket/class_names.h"
#include "websocket/managed/mono_api.h"
#include "websocket/managed/mono_library.h"
#include "websocket/managed/spare_text.h"
#include "websocket_impl_assembly.h"

namespace pennywort::websocket {

namespace {

// The array has a byte more than the assembly.
constexpr std::size_t k_assembly_bytes = sizeof k_pennywort_websocket_dll - 1;
constexpr char k_framework[] = "v4.0.30319";

// The internal calls of the assembly are plain functions, so that what they reach is global.
mono_api g_mono;
mono_events* g_events = nullptr;

// Once for each thread: the runtime ends the process when a thread that is attached waits for
// another one which is being attached.
void attach_to(MonoDomain* domain) {
    if (g_mono.domain_get() == nullptr) g_mono.thread_attach(domain);
}

std::string utf8_of(MonoString* text) {
    if (text == nullptr) return {};
    char* const bytes = g_mono.string_to_utf8(text);
    std::string copy = bytes == nullptr ? "" : spare_text::copy_of(bytes);
    g_mono.free(bytes);
    return copy;
}

void told_opened(std::int64_t number) noexcept {
    run::guarded(k_class_sharp, "OnOpen", [&] {
        if (const auto owner = g_events->owner_of(number)) owner->socket_opened();
    });
}

void told_closed(std::int64_t number, std::uint16_t code, std::uint8_t was_clean) noexcept {
    run::guarded(k_class_sharp, "OnClose", [&] {
        const auto owner = g_events->owner_of(number);
        g_events->forget(number);
        if (owner != nullptr) owner->socket_closed(code, was_clean != 0);
    });
}

void told_failed(std::int64_t number, MonoString* text) noexcept {
    run::guarded(k_class_sharp, "OnError", [&] {
        if (const auto owner = g_events->owner_of(number)) owner->error_received(utf8_of(text));
    });
}

void told_received(std::int64_t number, MonoArray* bytes) noexcept {
    run::guarded(k_class_sharp, "OnMessage", [&] {
        const auto owner = g_events->owner_of(number);
        if (owner == nullptr) return;
        const std::size_t size = g_mono.array_length(bytes);
        const char* const first = size == 0 ? "" : g_mono.array_addr_with_size(bytes, 1, 0);
        owner->message_received(spare_text::copy_of({first, size}), true);
    });
}

void told_text(std::int64_t number, MonoString* text) noexcept {
    run::guarded(k_class_sharp, "OnMessage", [&] {
        const auto owner = g_events->owner_of(number);
        if (owner != nullptr) owner->message_received(utf8_of(text), false);
    });
}

template <typename function>
bool resolve(zLibrary& library, const char* name, function& into) {
    into = reinterpret_cast<function>(library.Symbol(name));
    return into != nullptr;
}

bool resolve_all(zLibrary& library) {
    bool has_all = true;
#define PENNYWORT_MONO_RESOLVE(result, name, arguments) \
    has_all = resolve(library, "mono_" #name, g_mono.name) && has_all;
    PENNYWORT_MONO_FUNCTIONS(PENNYWORT_MONO_RESOLVE)
#undef PENNYWORT_MONO_RESOLVE
    return has_all;
}

// The library stays: its threads do not end.
void open_library() {
    for (const char* name : mono_library_names()) {
        const std::unique_ptr<zLibrary> library(zLibrary::Factory());
        if (library == nullptr || library->Load(name) != 0) continue;
        if (!resolve_all(*library)) continue;
        library->Keep();
        show_mono_names(name);
        return;
    }
    throw std::runtime_error("There is no managed runtime.");
}

struct methods {
    MonoMethod* make = nullptr;
    MonoMethod* begin = nullptr;
    MonoMethod* leave = nullptr;
    MonoMethod* send_text = nullptr;
    MonoMethod* send_bytes = nullptr;
    MonoMethod* send_ping = nullptr;
    MonoMethod* words_of = nullptr;
};

class managed_object final : public mono_object {
public:
    managed_object(MonoDomain* domain, const methods& known, MonoObject* object)
        : m_domain(domain), m_methods(known), m_handle(g_mono.gchandle_new(object, 0)) {}
    ~managed_object() override {
        attach_to(m_domain);
        g_mono.gchandle_free(m_handle);
    }

    std::string begin() override { return call(m_methods.begin, nullptr); }
    std::string leave() override { return call(m_methods.leave, nullptr); }
    std::string send_ping() override { return call(m_methods.send_ping, nullptr); }
    std::string send_text(std::string_view text) override {
        attach_to(m_domain);
        return call(m_methods.send_text, g_mono.string_new_len(m_domain, text.data(),
                                                               static_cast<unsigned>(text.size())));
    }
    std::string send_bytes(std::string_view bytes) override {
        attach_to(m_domain);
        MonoArray* const array = g_mono.array_new(m_domain, g_mono.get_byte_class(), bytes.size());
        if (!bytes.empty()) bytes.copy(g_mono.array_addr_with_size(array, 1, 0), bytes.size());
        return call(m_methods.send_bytes, array);
    }

private:
    std::string call(MonoMethod* method, void* argument) {
        attach_to(m_domain);
        MonoObject* exception = nullptr;
        void* arguments[] = {argument};
        MonoObject* const words = g_mono.runtime_invoke(
            method, g_mono.gchandle_get_target(m_handle), arguments, &exception);
        if (exception != nullptr) return "a managed exception";
        return utf8_of(reinterpret_cast<MonoString*>(words));
    }

    MonoDomain* const m_domain;
    const methods m_methods;
    const std::uint32_t m_handle;
};

class opened_runtime final : public mono_runtime {
public:
    explicit opened_runtime(const std::string& assembly);

    std::unique_ptr<mono_object> make(std::int64_t owner, const std::string& url) override;

private:
    void start();
    void add_calls();
    void load(const std::string& assembly);
    MonoMethod* method(MonoClass* of, const char* name, int count);
    std::string words_of(MonoObject* exception);

    MonoDomain* m_domain = nullptr;
    methods m_methods;
};

opened_runtime::opened_runtime(const std::string& assembly) {
    if (k_assembly_bytes == 0) {
        throw std::runtime_error("The library was built without a compiler for the managed half.");
    }
    open_library();
    start();
    add_calls();
    load(assembly);
}

// A host may have a runtime of its own in the process: then that one serves.
void opened_runtime::start() {
    m_domain = g_mono.get_root_domain();
    if (m_domain == nullptr) {
        g_mono.set_signal_chaining(1);
        // Its own folders, by which it finds its settings and the native half of its libraries.
        g_mono.set_dirs(nullptr, nullptr);
        g_mono.config_parse(nullptr);
        m_domain = g_mono.jit_init_version("pennywort", k_framework);
    }
    if (m_domain == nullptr) throw std::runtime_error("The managed runtime does not start.");
    attach_to(m_domain);
}

void opened_runtime::add_calls() {
    const auto add = [](const char* name, auto* function) {
        g_mono.add_internal_call(name, reinterpret_cast<const void*>(function));
    };
    add("Pennywort.WebSocketImpl::Opened", &told_opened);
    add("Pennywort.WebSocketImpl::Closed", &told_closed);
    add("Pennywort.WebSocketImpl::Failed", &told_failed);
    add("Pennywort.WebSocketImpl::Received", &told_received);
    add("Pennywort.WebSocketImpl::ReceivedText", &told_text);
}

void opened_runtime::load(const std::string& assembly) {
    if (g_mono.domain_assembly_open(m_domain, assembly.c_str()) == nullptr) {
        throw std::runtime_error(assembly + " is no assembly.");
    }
    std::int32_t status = 0;
    auto* const bytes = const_cast<char*>(reinterpret_cast<const char*>(k_pennywort_websocket_dll));
    MonoImage* const image = g_mono.image_open_from_data(bytes, k_assembly_bytes, 1, &status);
    if (image == nullptr ||
        g_mono.assembly_load_from(image, "pennywort-websocket", &status) == nullptr) {
        throw std::runtime_error("The assembly of WebSocketImpl does not load.");
    }
    MonoClass* const found = g_mono.class_from_name(image, "Pennywort", "WebSocketImpl");
    if (found == nullptr) throw std::runtime_error(assembly + " is no websocket-sharp.");
    m_methods = {method(found, "Make", 2),      method(found, "Begin", 0),
                 method(found, "Leave", 0),     method(found, "SendText", 1),
                 method(found, "SendBytes", 1), method(found, "SendOnePing", 0),
                 method(found, "WordsOf", 1)};
}

MonoMethod* opened_runtime::method(MonoClass* of, const char* name, int count) {
    MonoMethod* const found = g_mono.class_get_method_from_name(of, name, count);
    if (found == nullptr) throw std::runtime_error(std::string("There is no method ") + name);
    return found;
}

std::string opened_runtime::words_of(MonoObject* exception) {
    void* arguments[] = {exception};
    MonoObject* another = nullptr;
    MonoObject* const words =
        g_mono.runtime_invoke(m_methods.words_of, nullptr, arguments, &another);
    if (another != nullptr) return "a managed exception";
    return utf8_of(reinterpret_cast<MonoString*>(words));
}

std::unique_ptr<mono_object> opened_runtime::make(std::int64_t owner, const std::string& url) {
    attach_to(m_domain);
    MonoString* const text =
        g_mono.string_new_len(m_domain, url.data(), static_cast<unsigned>(url.size()));
    void* arguments[] = {&owner, text};
    MonoObject* exception = nullptr;
    MonoObject* const made = g_mono.runtime_invoke(m_methods.make, nullptr, arguments, &exception);
    if (exception != nullptr || made == nullptr) {
        throw std::invalid_argument(exception == nullptr ? "no object" : words_of(exception));
    }
    return std::make_unique<managed_object>(m_domain, m_methods, made);
}

}  // namespace

// A runtime can be started once in a process; what could not be had is not tried again.
mono_runtime& mono_runtime::of(const std::string& assembly, mono_events& events) {
    static loam::ready_mutex mutex;
    static opened_runtime* opened = nullptr;
    static std::string fault;
    const std::lock_guard lock(mutex);
    if (!fault.empty()) throw std::runtime_error(fault);
    if (opened == nullptr) {
        g_events = &events;
        try {
            opened = new opened_runtime(assembly);
        } catch (const std::exception& error) {
            fault = error.what();
            throw;
        }
    }
    return *opened;
}

}  // namespace pennywort::websocket
