// bonjour.h - services on the local network (DNS-SD, "Bonjour"): cBonjour advertises them and
// watches for them, cBonjourLib binds the system's library for that at run time.
//
// Threads: a cBonjour belongs to one thread, and all objects of a process to the same one. The
// thread that first registers or observes runs a message loop (loam/message_loop.h, or any that
// serves its GLib context or its windows): whatever the network says comes through that loop. To
// look a found service up may hold that thread for 2 s.
#pragma once

#include <cstdint>
#include <memory>

#include "loam/list.h"
#include "loam/string.h"
#include "pennywort_export.h"

class zLibrary;
class cBonjourService;
// The system's own name of it, so that this header and its dns_sd.h can stand side by side.
struct _DNSServiceRef_t;  // NOLINT(bugprone-reserved-identifier)

namespace pennywort::discovery {
struct found_service;
struct resolved_service;
struct life;
}  // namespace pennywort::discovery

// The seven functions of the DNS-SD library ("DNSSD.DLL", "libdns_sd.so.1") that are used here, all
// or none. They are passed on as they are; dns_sd.h says what they do. Where the library is missing
// each of them returns -65537 and changes nothing.
class PENNYWORT_API cBonjourLib {
public:
    using Reference = _DNSServiceRef_t*;
    using RegisterReply = void (*)(Reference sdRef, std::uint32_t flags, std::int32_t error,
                                   const char* name, const char* regtype, const char* domain,
                                   void* context);
    using BrowseReply = void (*)(Reference sdRef, std::uint32_t flags, std::uint32_t interfaceIndex,
                                 std::int32_t error, const char* name, const char* regtype,
                                 const char* domain, void* context);
    using ResolveReply = void (*)(Reference sdRef, std::uint32_t flags,
                                  std::uint32_t interfaceIndex, std::int32_t error,
                                  const char* fullName, const char* host, std::uint16_t port,
                                  std::uint16_t txtLength, const unsigned char* txt, void* context);

    // Loads the library; nothing is reported where that fails.
    cBonjourLib();
    cBonjourLib(const cBonjourLib&) = delete;
    cBonjourLib& operator=(const cBonjourLib&) = delete;
    // Unloads it: no reference may be left.
    ~cBonjourLib();

    // Whether all seven are there.
    bool Exists() const;

    // `port` is in network byte order.
    int DNSServiceRegister(Reference* sdRef, std::uint32_t flags, std::uint32_t interfaceIndex,
                           const char* name, const char* regtype, const char* domain,
                           const char* host, std::uint16_t port, std::uint16_t txtLength,
                           const void* txt, RegisterReply callback, void* context);
    int DNSServiceBrowse(Reference* sdRef, std::uint32_t flags, std::uint32_t interfaceIndex,
                         const char* regtype, const char* domain, BrowseReply callback,
                         void* context);
    int DNSServiceResolve(Reference* sdRef, std::uint32_t flags, std::uint32_t interfaceIndex,
                          const char* name, const char* regtype, const char* domain,
                          ResolveReply callback, void* context);
    // Waits until there is something to read, then calls back.
    int DNSServiceProcessResult(Reference sdRef);
    int DNSServiceRefSockFD(Reference sdRef);
    void DNSServiceRefDeallocate(Reference sdRef);
    int TXTRecordGetItemAtIndex(std::uint16_t txtLength, const void* txt, std::uint16_t itemIndex,
                                std::uint16_t keyBufferLength, char* key, std::uint8_t* valueLength,
                                const void** value);

private:
    struct functions {
        void (*deallocate)(Reference);
        int (*process_result)(Reference);
        int (*socket_of)(Reference);
        int (*browse)(Reference*, std::uint32_t, std::uint32_t, const char*, const char*,
                      BrowseReply, void*);
        int (*resolve)(Reference*, std::uint32_t, std::uint32_t, const char*, const char*,
                       const char*, ResolveReply, void*);
        int (*enrol)(Reference*, std::uint32_t, std::uint32_t, const char*, const char*,
                     const char*, const char*, std::uint16_t, std::uint16_t, const void*,
                     RegisterReply, void*);
        int (*item_at)(std::uint16_t, const void*, std::uint16_t, std::uint16_t, char*,
                       std::uint8_t*, const void**);
    };

    void initialize();

    zLibrary* m_library = nullptr;  // null when it could not be loaded
    functions m_functions{};
};

// Advertises services of this host and watches for those of others.
//
// Whoever watches is known by the number of a zObserverHandler. What is found or gone comes to it
// as a notification, a record with:
//   'what'     number with that identifier: 'cBj+' (0x63426A2B) found, 'cBj-' (0x63426A2D) gone
//   "host"     name of the machine that serves
//   "service"  the type as it was asked for
//   "port"     number
//   "name"     name of the service
//   and, where the service has a TXT record, one child: a text for each item of it.
// A service comes once for each interface and protocol on which it is seen. Each is looked up when
// it comes and again when it goes: one that no longer answers then goes unheard. What comes of
// StartObservingOnce and StartObservingEach has neither of these traits.
//
// Where the system has no DNS-SD every operation fails. Types and names that are not UTF-8 are
// refused.
class PENNYWORT_API cBonjour {
public:
    cBonjour();
    cBonjour(const cBonjour&) = delete;
    cBonjour& operator=(const cBonjour&) = delete;
    // Withdraws all services and stops all watching. Also from a call that comes out of it.
    ~cBonjour();

    // Advertises a service under the computer's name. `txt` is one item of a TXT record: a byte
    // with the length of the text behind it; null or a length of 0 stand for no record. 0, or -1.
    // Of `port` 16 bits count, and a null type is an empty one, which the system refuses or not.
    // Where another machine has the name, the system finds another one; whether one that this
    // machine has is refused is the system's matter (Avahi refuses it). A daemon that ends later
    // and comes back knows nothing of the service: see HasLostDaemon.
    long Service_Register(const char* type, long port, const char* txt);
    // Withdraws every service whose type begins with `type` (null: any) and whose port is `port`
    // (0: any). -1 when there is none.
    long Service_Unregister(const char* type, long port);

    // Watches for services of a type: one that begins with "_" and holds "._tcp." or "._udp.".
    // `observerId` is not 0; given twice it hears everything twice. With bit 0 of `flags` only
    // services of this machine are looked for, which Avahi's library refuses; the other bits mean
    // nothing. Of `observerId` 32 bits count. 0, or -1.
    long StartObserving(long observerId, const char* type, unsigned long flags);
    // Takes the watcher from every type, once from each. A type without watchers is no longer
    // looked for. What had been told before may still be on its way to the watcher.
    void StopObserving(long observerId);

    // Whether this machine has DNS-SD; looked up once in the life of a process.
    static bool SystemHasBonjour();
    // "_%s._tcp." with the name, into `out`, whose text it returns.
    static const char* TCPServiceType(zString& out, const char* name);

    // --- Beside these

    // Advertises a service under a name of its own (null or empty: the computer's) with a whole TXT
    // record of at most 65535 bytes. -1 also for a record that is no sequence of items, for a null
    // type and for a port outside 1 to 65535. Ended by Service_Unregister.
    long Service_Advertise(const char* name, const char* type, long port, const void* txt,
                           unsigned long txtLength);
    // Adds an item, "key=value", to a TXT record. A null value adds the key alone. False, and
    // nothing is added, for a key that is null, empty, or holds anything but printable ASCII
    // without "=", for an item of more than 255 bytes and a record of more than 65535.
    static bool TXTAddItem(zString& record, const char* key, const void* value,
                           unsigned long length);
    // As StartObserving, but each service is reported once, however many interfaces and protocols
    // it is seen on, and is gone when it is gone from all of them; then with what was last known of
    // it, and without looking it up. What could not be looked up is not reported. The thread's loop
    // looks up one service a turn, so that between two of them the host has its turn.
    long StartObservingOnce(long observerId, const char* type, unsigned long flags);
    // As StartObservingOnce, with one report for each interface that a service is seen on.
    long StartObservingEach(long observerId, const char* type, unsigned long flags);

    // Whether the system's daemon has ended, or given something up, since that which is still
    // registered or watched was asked for: it is dead, and has to be withdrawn or stopped and
    // asked for anew. Seen by the message loop; not of what is past the 255 that it serves.
    bool HasLostDaemon() const;
    // What the DNS-SD library said when it refused the last request to register, advertise or
    // observe: a number of its dns_sd.h, such as -65548 for a name that is taken. 0 where it was
    // not asked, or did not refuse.
    long LastError() const;

private:
    using service_list = zList<cBonjourService*>;
    using Reference = cBonjourLib::Reference;
    struct browse_request;
    struct registration;

    static bool is_valid_service_type(const char* type);
    static cBonjourService* find_service(const service_list& list, const char* type, long port,
                                         const cBonjourService* after);
    static cBonjourService* find_reference(const service_list& list, Reference reference);
    static void remove(service_list& list, const cBonjourService* service);

    bool is_usable() const;
    long register_service(const registration& what);
    bool register_start(cBonjourService& service, const registration& what);
    long observe(const browse_request& what);
    cBonjourService* find_browse(const browse_request& what);
    cBonjourService* find_browse(std::uint64_t number) const;
    cBonjourService* browse_start(const browse_request& what);
    void browse_changed(Reference reference, const pennywort::discovery::found_service& found);
    void take_change(cBonjourService& browse, const pennywort::discovery::found_service& found);
    static void tell_full(cBonjourService& browse);
    bool ask_for_turn(cBonjourService& browse);
    void look_up_next(std::uint64_t browse_number);
    bool look_up_one(std::uint64_t browse_number);
    std::unique_ptr<cBonjourService> begin_waiting(const cBonjourService& browse);
    std::unique_ptr<cBonjourService> look_up_begin(
        const cBonjourService& browse, const pennywort::discovery::found_service& found);
    static long look_up_end(const pennywort::discovery::life& alive, cBonjourLib& library,
                            std::unique_ptr<cBonjourService> service);
    std::unique_ptr<cBonjourService> begin_ahead(const cBonjourService& browse,
                                                 const cBonjourService& current);
    static bool is_wanted(const cBonjourService& browse, const cBonjourService& service);
    static void give_up_ahead(cBonjourService& browse, cBonjourLib& library);
    long browse_resolve_now(const cBonjourService& browse,
                            const pennywort::discovery::found_service& found);
    static bool has_answered(const pennywort::discovery::life& alive, cBonjourLib& library,
                             cBonjourService& service);
    void browse_resolve_success(Reference reference,
                                const pennywort::discovery::resolved_service& resolved);
    static int process_look_up(const pennywort::discovery::life& alive, cBonjourLib& library,
                               cBonjourService& service);
    static bool socket_has_data_waiting(cBonjourLib& library, Reference reference, int timeout_ms);
    static bool is_worth_telling(cBonjourService& browse, const cBonjourService& service,
                                 const pennywort::discovery::resolved_service& resolved);
    void tell(const cBonjourService& browse, std::int32_t event, const char* name,
              const pennywort::discovery::resolved_service& resolved);
    bool attach(cBonjourService& service, service_list& list);
    void end_service(service_list& list, cBonjourService* service);

    static void register_reply(Reference, std::uint32_t, std::int32_t, const char*, const char*,
                               const char*, void*);
    static void browse_reply(Reference reference, std::uint32_t flags, std::uint32_t interfaceIndex,
                             std::int32_t error, const char* name, const char* type,
                             const char* domain, void* context);
    static void resolve_reply(Reference reference, std::uint32_t, std::uint32_t, std::int32_t error,
                              const char*, const char* host, std::uint16_t port,
                              std::uint16_t txtLength, const unsigned char* txt, void* context);

    // Shared: who is inside a call of the library's keeps it loaded.
    std::shared_ptr<cBonjourLib> m_lib;
    service_list m_browse_list;
    service_list m_resolving_list;
    service_list m_registered_list;
    // Tells those who are inside a call of this object's that it has ended meanwhile.
    std::shared_ptr<pennywort::discovery::life> m_life;
    std::int32_t m_last_error = 0;
};
