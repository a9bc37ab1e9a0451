// bonjour.cpp - cBonjour of include/bonjour.h.
#include "bonjour.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "core/limits.h"
#include "core/run/deadline.h"
#include "core/run/guarded.h"
#include "core/text/utf8.h"
#include "discovery/bonjour_service.h"
#include "discovery/dnssd_codes.h"
#include "discovery/dnssd_name.h"
#include "discovery/notification.h"
#include "discovery/reference_events.h"
#include "discovery/socket_events.h"
#include "discovery/txt_record.h"
#include "loam/message_loop.h"
#include "loam/observer.h"
#include "loam/trace.h"

using namespace pennywort;
using namespace pennywort::discovery;  // the parts that cBonjour puts together

struct cBonjour::registration {
    const char* name;  // empty: the computer's
    const char* type;
    long port;
    std::string_view txt;
};

struct cBonjour::browse_request {
    std::int32_t observer;
    const char* type;
    unsigned long flags;
    reporting how;
};

namespace {

constexpr long k_fine = 0;
constexpr long k_refused = -1;
constexpr long k_highest_port = 65535;

// A number as it goes over the network, and back.
std::uint16_t network_order(std::uint16_t number) {
    if constexpr (std::endian::native == std::endian::big) return number;
    return static_cast<std::uint16_t>(number << 8 | number >> 8);
}

bool is_speakable(const char* text) {
    return text == nullptr || takes_any_bytes() || text::is_utf8(text);
}

const char* or_null(const zString& text) { return text.Empty() ? nullptr : text.CString(); }

std::string_view item_at(const char* txt) {
    const std::size_t length = txt == nullptr ? 0 : static_cast<unsigned char>(*txt);
    return length == 0 ? std::string_view() : std::string_view(txt, length + 1);
}

bool is_whole(const found_service& found) {
    return found.name != nullptr && found.type != nullptr && found.domain != nullptr;
}

service_key key_of(const cBonjourService& browse, const found_service& found) {
    const bool is_each = browse.how == reporting::each_interface;
    return {found.name, found.type, found.domain, is_each ? found.interface_index : 0};
}

// Of a service that is looked up.
service_key key_of(const cBonjourService& browse, const cBonjourService& service) {
    return key_of(browse, {service.event, service.interface_index, service.name.CString(),
                           service.type.CString(), service.domain.CString()});
}

cBonjour* owner_of(void* context) {
    return context == nullptr ? nullptr : static_cast<life*>(context)->owner;
}

long guarded_long(const char* what, auto&& call) {
    return run::guarded_or(k_refused, "cBonjour", what, call);
}

}  // namespace

cBonjour::cBonjour() {
    // Without memory it is as without DNS-SD.
    run::guarded("cBonjour", "starting", [this] {
        m_life = std::make_shared<life>(life{this});
        m_lib = std::make_shared<cBonjourLib>();
    });
}

cBonjour::~cBonjour() {
    if (m_life != nullptr) m_life->owner = nullptr;
    while (m_registered_list.Count() > 0) end_service(m_registered_list, m_registered_list[0]);
    while (m_browse_list.Count() > 0) end_service(m_browse_list, m_browse_list[0]);
}

bool cBonjour::is_usable() const { return m_lib != nullptr && m_lib->Exists(); }

bool cBonjour::SystemHasBonjour() {
    static const bool s_has = cBonjourLib().Exists();
    return s_has;
}

bool cBonjour::is_valid_service_type(const char* type) {
    if (type == nullptr || *type != '_') return false;
    return std::strstr(type, "._tcp.") != nullptr || std::strstr(type, "._udp.") != nullptr;
}

// A type stands for all that begin with it: hosts withdraw "_http._tcp." and mean those with a
// domain behind it too.
cBonjourService* cBonjour::find_service(const service_list& list, const char* type, long port,
                                        const cBonjourService* after) {
    bool is_behind = after == nullptr;
    for (std::int32_t i = 0; i < list.Count(); ++i) {
        cBonjourService* const one = list[i];
        const bool is_port = port == 0 || one->port == port;
        if (is_behind && is_port && (type == nullptr || one->type.View().starts_with(type))) {
            return one;
        }
        is_behind = is_behind || one == after;
    }
    return nullptr;
}

cBonjourService* cBonjour::find_reference(const service_list& list, Reference reference) {
    for (std::int32_t i = 0; i < list.Count(); ++i) {
        if (list[i]->reference == reference) return list[i];
    }
    return nullptr;
}

void cBonjour::remove(service_list& list, const cBonjourService* service) {
    for (std::int32_t i = list.Count() - 1; i >= 0; --i) {
        if (list[i] == service) list.RemoveAt(i);
    }
}

// Has what arrives for the service processed, and puts it into its list. On failure its reference
// is given back.
bool cBonjour::attach(cBonjourService& service, service_list& list) {
    const bool is_in = put_in(service.reference, m_lib);
    const bool is_listed =
        is_in && run::guarded("cBonjour", "keeping a service", [&] { list.Add(&service); });
    if (is_listed) return true;
    if (is_in) take_out(service.reference, *m_lib);
    m_lib->DNSServiceRefDeallocate(service.reference);
    return false;
}

// Out of the list first: the library may call back while it gives a reference up.
void cBonjour::end_service(service_list& list, cBonjourService* service) {
    const std::unique_ptr<cBonjourService> owned(service);
    const std::shared_ptr<cBonjourLib> library = m_lib;
    remove(list, service);
    take_out(service->reference, *library);
    give_up_ahead(*service, *library);
    library->DNSServiceRefDeallocate(service->reference);
}

bool cBonjour::HasLostDaemon() const {
    const auto has_dead = [](const service_list& list) {
        for (std::int32_t i = 0; i < list.Count(); ++i) {
            if (is_dead(list[i]->reference)) return true;
        }
        return false;
    };
    return has_dead(m_registered_list) || has_dead(m_browse_list);
}

long cBonjour::LastError() const { return m_last_error; }

// --- Registering

// Avahi's way to say that the daemon has ended, for a browse too.
void cBonjour::register_reply(Reference reference, std::uint32_t, std::int32_t error, const char*,
                              const char*, const char*, void*) {
    if (error != k_dnssd_no_error) give_up(reference, error);
}

long cBonjour::Service_Register(const char* type, long port, const char* txt) {
    return register_service({"", type, port, item_at(txt)});
}

long cBonjour::Service_Advertise(const char* name, const char* type, long port, const void* txt,
                                 unsigned long txtLength) {
    const bool has_record = txt != nullptr && txtLength != 0;
    const std::string_view record =
        has_record ? std::string_view(static_cast<const char*>(txt), txtLength) : "";
    const bool is_port = port > 0 && port <= k_highest_port;
    if (type == nullptr || !is_port || !is_txt_record(record)) return k_refused;
    return register_service({name == nullptr ? "" : name, type, port, record});
}

long cBonjour::register_service(const registration& what) {
    m_last_error = k_dnssd_no_error;
    if (!is_usable() || !is_speakable(what.type) || !is_speakable(what.name)) return k_refused;
    return guarded_long("registering", [&] {
        auto service =
            std::make_unique<cBonjourService>(what.type, static_cast<std::int32_t>(what.port));
        service->name = what.name;
        if (!register_start(*service, what)) return k_refused;
        static_cast<void>(service.release());  // the list's now
        return k_fine;
    });
}

bool cBonjour::register_start(cBonjourService& service, const registration& what) {
    const auto port = network_order(static_cast<std::uint16_t>(what.port));
    m_last_error = m_lib->DNSServiceRegister(
        &service.reference, 0, k_any_interface, or_null(service.name), service.type.CString(),
        or_null(service.domain), nullptr, port, static_cast<std::uint16_t>(what.txt.size()),
        what.txt.empty() ? nullptr : what.txt.data(), &cBonjour::register_reply, nullptr);
    return m_last_error == k_dnssd_no_error && attach(service, m_registered_list);
}

long cBonjour::Service_Unregister(const char* type, long port) {
    if (!is_usable()) return k_refused;
    cBonjourService* found = find_service(m_registered_list, type, port, nullptr);
    if (found == nullptr) return k_refused;
    while (found != nullptr) {
        end_service(m_registered_list, found);
        found = find_service(m_registered_list, type, port, nullptr);
    }
    return k_fine;
}

// --- Observing

long cBonjour::StartObserving(long observerId, const char* type, unsigned long flags) {
    return observe({static_cast<std::int32_t>(observerId), type, flags, reporting::plain});
}

long cBonjour::StartObservingOnce(long observerId, const char* type, unsigned long flags) {
    return observe({static_cast<std::int32_t>(observerId), type, flags, reporting::once});
}

long cBonjour::StartObservingEach(long observerId, const char* type, unsigned long flags) {
    return observe({static_cast<std::int32_t>(observerId), type, flags, reporting::each_interface});
}

long cBonjour::observe(const browse_request& what) {
    m_last_error = k_dnssd_no_error;
    if (!is_usable() || what.observer == 0) return k_refused;
    if (!is_valid_service_type(what.type) || !is_speakable(what.type)) return k_refused;
    return guarded_long("observing", [&] {
        cBonjourService* const there = find_browse(what);
        cBonjourService* const browse = there != nullptr ? there : browse_start(what);
        if (browse == nullptr) return k_refused;
        const bool is_added = run::guarded("cBonjour", "adding an observer",
                                           [&] { browse->observers.push_back(what.observer); });
        if (!is_added && there == nullptr) end_service(m_browse_list, browse);
        return is_added ? k_fine : k_refused;
    });
}

// Those that report in another way never share a browse.
cBonjourService* cBonjour::find_browse(const browse_request& what) {
    cBonjourService* found = find_service(m_browse_list, what.type, 0, nullptr);
    while (found != nullptr && found->how != what.how) {
        found = find_service(m_browse_list, what.type, 0, found);
    }
    return found;
}

cBonjourService* cBonjour::find_browse(std::uint64_t number) const {
    for (std::int32_t i = 0; i < m_browse_list.Count(); ++i) {
        if (m_browse_list[i]->number == number) return m_browse_list[i];
    }
    return nullptr;
}

cBonjourService* cBonjour::browse_start(const browse_request& what) {
    auto service = std::make_unique<cBonjourService>(what.type, 0);
    service->number = ++m_life->last_browse;
    service->how = what.how;
    if (what.how != reporting::plain) service->known = std::make_unique<known_services>();
    const std::uint32_t where = (what.flags & 1) != 0 ? k_local_only : k_any_interface;
    m_last_error =
        m_lib->DNSServiceBrowse(&service->reference, 0, where, service->type.CString(),
                                or_null(service->domain), &cBonjour::browse_reply, m_life.get());
    if (m_last_error != k_dnssd_no_error || !attach(*service, m_browse_list)) return nullptr;
    return service.release();
}

void cBonjour::StopObserving(long observerId) {
    if (!is_usable()) return;
    const auto id = static_cast<std::int32_t>(observerId);
    std::int32_t next = 0;
    while (next < m_browse_list.Count()) {
        auto& observers = m_browse_list[next]->observers;
        const auto found = std::find(observers.begin(), observers.end(), id);
        if (found != observers.end()) observers.erase(found);
        if (observers.empty()) {
            end_service(m_browse_list, m_browse_list[next]);
        } else {
            ++next;
        }
    }
}

void cBonjour::browse_reply(Reference reference, std::uint32_t flags, std::uint32_t interfaceIndex,
                            std::int32_t error, const char* name, const char* type,
                            const char* domain, void* context) {
    cBonjour* const owner = owner_of(context);
    if (owner == nullptr) return;
    if (error != k_dnssd_no_error) return give_up(reference, error);
    const std::int32_t event = (flags & k_dnssd_flag_add) != 0 ? k_service_found : k_service_gone;
    run::guarded("cBonjour", "a change", [&] {
        owner->browse_changed(reference, {event, interfaceIndex, name, type, domain});
    });
}

void cBonjour::browse_changed(Reference reference, const found_service& found) {
    cBonjourService* const browse = find_reference(m_browse_list, reference);
    if (browse == nullptr) return;
    if (browse->known != nullptr && is_whole(found)) return take_change(*browse, found);
    browse_resolve_now(*browse, found);
}

// For a browse that is not plain. What has gone is told from here.
void cBonjour::take_change(cBonjourService& browse, const found_service& found) {
    const service_key key = key_of(browse, found);
    if (found.event == k_service_found) {
        if (!browse.known->add(key, found.interface_index)) return tell_full(browse);
        const std::shared_ptr<life> alive = m_life;
        const std::uint64_t number = browse.number;
        if (!browse.known->has_waiting() || ask_for_turn(browse)) return;
        if (alive->owner != nullptr) look_up_next(number);
        return;
    }
    service_details last;
    if (!browse.known->remove(key, last)) return;
    tell(browse, found.event, found.name,
         {k_dnssd_no_error, last.host.c_str(), last.port,
          static_cast<std::uint16_t>(last.txt.size()), last.txt.data()});
}

void cBonjour::tell_full(cBonjourService& browse) {
    if (std::exchange(browse.is_full, true)) return;
    zTraceManager::Default()->TraceNote("cBonjour: too many services of type %s\n",
                                        browse.type.CString());
}

// One look-up a turn of the loop: a library may tell of a thousand services in one result, and each
// that is silent takes 2 s, in which the thread would do nothing else. False without memory for it:
// that has been traced, and whoever hears traces may have ended the browse, and this object.
bool cBonjour::ask_for_turn(cBonjourService& browse) {
    if (browse.is_turn_asked) return true;
    const auto turn = [alive = m_life, number = browse.number] {
        if (alive->owner != nullptr) alive->owner->look_up_next(number);
    };
    const bool is_asked = run::guarded_or(false, "cBonjour", "asking for a turn", [&turn] {
        return zMessageLoop::Current()->Post(turn) == 0;
    });
    if (is_asked) browse.is_turn_asked = true;
    return is_asked;
}

// Where no turn can be had, all are looked up in this one.
void cBonjour::look_up_next(std::uint64_t browse_number) {
    const std::shared_ptr<life> alive = m_life;
    while (alive->owner != nullptr && look_up_one(browse_number)) {
    }
}

// The next one is begun before this one's answer is waited for: to begin takes most of a look-up's
// time, and the answer comes meanwhile. True when there are more and they have no turn.
bool cBonjour::look_up_one(std::uint64_t browse_number) {
    const std::shared_ptr<life> alive = m_life;
    const std::shared_ptr<cBonjourLib> library = m_lib;
    cBonjourService* browse = find_browse(browse_number);
    if (browse == nullptr) return false;
    // The library may call the host, which may run its loop: no other turn may come meanwhile.
    browse->is_turn_asked = true;
    if (browse->ahead != nullptr && !is_wanted(*browse, *browse->ahead)) {
        give_up_ahead(*browse, *library);
        browse = alive->owner != nullptr ? find_browse(browse_number) : nullptr;
        if (browse == nullptr) return false;
    }
    auto current = std::move(browse->ahead);
    if (current == nullptr) current = begin_waiting(*browse);
    // It may have ended the browse, too.
    browse = alive->owner != nullptr ? find_browse(browse_number) : nullptr;
    std::unique_ptr<cBonjourService> ahead;
    if (browse != nullptr && current != nullptr) ahead = begin_ahead(*browse, *current);
    browse = alive->owner != nullptr ? find_browse(browse_number) : nullptr;
    bool has_more = false;
    if (browse != nullptr) {
        browse->ahead = std::move(ahead);
        browse->is_turn_asked = false;
        has_more = browse->ahead != nullptr || browse->known->has_waiting();
        if (has_more && ask_for_turn(*browse)) has_more = false;
    } else if (ahead != nullptr) {
        library->DNSServiceRefDeallocate(ahead->reference);
    }
    // Where nothing could be begun, for want of memory for instance, the next change tries again.
    if (current == nullptr) return false;
    look_up_end(*alive, *library, std::move(current));
    return has_more;
}

// What has gone is not waited for, and what has come back is looked up anew.
bool cBonjour::is_wanted(const cBonjourService& browse, const cBonjourService& service) {
    return run::guarded_or(true, "cBonjour", "a look-up ahead", [&] {
        return browse.known->is_wanted(key_of(browse, service), service.stay);
    });
}

// Nothing is thrown: one that is under way has to come to its end.
std::unique_ptr<cBonjourService> cBonjour::begin_waiting(const cBonjourService& browse) {
    std::unique_ptr<cBonjourService> begun;
    run::guarded("cBonjour", "a look-up", [&] {
        const auto next = browse.known->next();
        if (!next) return;
        const service_key& key = next->key;
        begun = look_up_begin(browse, {k_service_found, next->interface_index, key.name.c_str(),
                                       key.type.c_str(), key.domain.c_str()});
        if (begun != nullptr) begun->stay = next->stay;
    });
    return begun;
}

std::unique_ptr<cBonjourService> cBonjour::begin_ahead(const cBonjourService& browse,
                                                       const cBonjourService& current) {
    const bool has_more = run::guarded_or(false, "cBonjour", "a look-up ahead", [&] {
        return browse.known->has_waiting_beside(key_of(browse, current));
    });
    return has_more ? begin_waiting(browse) : nullptr;
}

void cBonjour::give_up_ahead(cBonjourService& browse, cBonjourLib& library) {
    const auto given_up = std::move(browse.ahead);
    if (given_up != nullptr) library.DNSServiceRefDeallocate(given_up->reference);
}

long cBonjour::browse_resolve_now(const cBonjourService& browse, const found_service& found) {
    const std::shared_ptr<life> alive = m_life;
    const std::shared_ptr<cBonjourLib> library = m_lib;
    auto service = look_up_begin(browse, found);
    return service == nullptr ? k_refused : look_up_end(*alive, *library, std::move(service));
}

// Null when it is refused.
std::unique_ptr<cBonjourService> cBonjour::look_up_begin(const cBonjourService& browse,
                                                         const found_service& found) {
    if (!is_whole(found)) return nullptr;
    const bool is_all_speakable =
        is_speakable(found.name) && is_speakable(found.type) && is_speakable(found.domain);
    if (!is_all_speakable) return nullptr;
    auto service = std::make_unique<cBonjourService>(found.type, 0);
    service->name = found.name;
    service->domain = found.domain;
    service->parent = browse.reference;
    service->number = browse.number;
    service->event = found.event;
    service->interface_index = found.interface_index;
    const std::shared_ptr<life> alive = m_life;
    const std::shared_ptr<cBonjourLib> library = m_lib;
    const int error = library->DNSServiceResolve(
        &service->reference, 0, found.interface_index, service->name.CString(),
        service->type.CString(), service->domain.CString(), &cBonjour::resolve_reply, alive.get());
    return error == k_dnssd_no_error ? std::move(service) : nullptr;
}

long cBonjour::look_up_end(const life& alive, cBonjourLib& library,
                           std::unique_ptr<cBonjourService> service) {
    const bool has_answer = alive.owner != nullptr && has_answered(alive, library, *service);
    library.DNSServiceRefDeallocate(service->reference);
    return has_answer ? k_fine : k_refused;
}

// Waits for the answer, in the middle of the browse's own callback. A sink of traces, or the
// library, may call the host meanwhile, which may end the object: hence the life and not the
// object.
bool cBonjour::has_answered(const life& alive, cBonjourLib& library, cBonjourService& service) {
    const run::deadline end{std::chrono::milliseconds(k_max_resolve_ms)};
    const bool has_more = !is_first_result_the_answer();
    int error = k_dnssd_no_error;
    int left_ms = k_max_resolve_ms;
    do {
        if (!socket_has_data_waiting(library, service.reference, left_ms)) return false;
        if (alive.owner == nullptr) return false;
        error = process_look_up(alive, library, service);
        left_ms = end.left_ms();
    } while (has_more && error == k_dnssd_no_error && !service.is_answered &&
             alive.owner != nullptr);
    return true;
}

// On the resolving list as long as the library may call back for it.
int cBonjour::process_look_up(const life& alive, cBonjourLib& library, cBonjourService& service) {
    service_list& resolving = alive.owner->m_resolving_list;
    const bool is_listed = run::guarded("cBonjour", "looking up", [&] { resolving.Add(&service); });
    if (!is_listed) return k_dnssd_unknown_error;
    const int error = library.DNSServiceProcessResult(service.reference);
    if (alive.owner != nullptr) remove(resolving, &service);
    return error;
}

bool cBonjour::socket_has_data_waiting(cBonjourLib& library, Reference reference, int timeout_ms) {
    const int socket = library.DNSServiceRefSockFD(reference);
    const arrival result = event_calls_in_use().wait(socket, timeout_ms);
    if (result == arrival::timed_out) {
        zTraceManager::Default()->TraceNote(
            "cBonjour: Timeout waiting for browsing resolution.!\n");
    } else if (result == arrival::failed) {
        zTraceManager::Default()->TraceNote(
            "cBonjour: Failure attempting to wait for browsing resolution.!\n");
    }
    return result == arrival::there;
}

void cBonjour::resolve_reply(Reference reference, std::uint32_t, std::uint32_t, std::int32_t error,
                             const char*, const char* host, std::uint16_t port,
                             std::uint16_t txtLength, const unsigned char* txt, void* context) {
    cBonjour* const owner = owner_of(context);
    if (owner == nullptr || reference == nullptr) return;
    run::guarded("cBonjour", "an answer", [&] {
        owner->browse_resolve_success(reference,
                                      {error, host, network_order(port), txtLength, txt});
    });
}

void cBonjour::browse_resolve_success(Reference reference, const resolved_service& resolved) {
    cBonjourService* const service = find_reference(m_resolving_list, reference);
    if (service == nullptr) return;
    service->is_answered = true;
    cBonjourService* const browse = find_reference(m_browse_list, service->parent);
    if (browse == nullptr || browse->number != service->number) return;
    if (!is_worth_telling(*browse, *service, resolved)) return;
    tell(*browse, service->event, service->name.CString(), resolved);
}

// An answer that is a failure tells nothing of the service. That it is told all the same, without
// a host, is how the plain browse has always been.
bool cBonjour::is_worth_telling(cBonjourService& browse, const cBonjourService& service,
                                const resolved_service& resolved) {
    if (browse.known == nullptr) return true;
    if (resolved.error != k_dnssd_no_error || resolved.host == nullptr) return false;
    return browse.known->tell(
        key_of(browse, service), service.stay,
        {resolved.host, resolved.port, {resolved.txt, resolved.txt + resolved.txt_length}});
}

void cBonjour::tell(const cBonjourService& browse, std::int32_t event, const char* name,
                    const resolved_service& resolved) {
    const std::vector<std::int32_t> observers = browse.observers;
    const zString type = browse.type;
    for (const std::int32_t observer : observers) {
        auto record = make_notification(event, type, name, resolved, *m_lib);
        zObserverHandler::PostNotification(observer, record.release(), 0);
    }
}
