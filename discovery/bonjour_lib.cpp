// bonjour_lib.cpp - cBonjourLib of include/bonjour.h.
#include <utility>

#include "bonjour.h"
#include "core/run/guarded.h"
#include "discovery/dnssd_codes.h"
#include "discovery/dnssd_name.h"
#include "loam/library.h"

using pennywort::discovery::dnssd_library_name;
using pennywort::discovery::k_dnssd_unknown_error;
using pennywort::discovery::keep_what_cannot_be_unloaded;

namespace {

template <typename function>
void look_up(zLibrary& library, const char* name, function*& out) {
    out = reinterpret_cast<function*>(library.Symbol(name));
}

// What a function of the library returns, or the error that stands for a missing one.
template <typename function, typename... arguments>
int call(function* forward, arguments... passed) {
    return forward == nullptr ? k_dnssd_unknown_error : forward(passed...);
}

}  // namespace

cBonjourLib::cBonjourLib() {
    // Loading takes memory; without it there is no library, as without the file.
    pennywort::run::guarded("cBonjourLib", "loading", [this] { initialize(); });
    if (Exists()) return;
    m_functions = {};
    delete std::exchange(m_library, nullptr);
}

cBonjourLib::~cBonjourLib() { delete m_library; }

void cBonjourLib::initialize() {
    m_library = zLibrary::Factory();
    if (m_library == nullptr || m_library->Load(dnssd_library_name()) != 0) return;
    keep_what_cannot_be_unloaded();
    look_up(*m_library, "DNSServiceRefDeallocate", m_functions.deallocate);
    look_up(*m_library, "DNSServiceProcessResult", m_functions.process_result);
    look_up(*m_library, "DNSServiceRefSockFD", m_functions.socket_of);
    look_up(*m_library, "DNSServiceBrowse", m_functions.browse);
    look_up(*m_library, "DNSServiceResolve", m_functions.resolve);
    look_up(*m_library, "DNSServiceRegister", m_functions.enrol);
    look_up(*m_library, "TXTRecordGetItemAtIndex", m_functions.item_at);
}

bool cBonjourLib::Exists() const {
    const functions& all = m_functions;
    return all.deallocate != nullptr && all.process_result != nullptr && all.socket_of != nullptr &&
           all.browse != nullptr && all.resolve != nullptr && all.enrol != nullptr &&
           all.item_at != nullptr;
}

int cBonjourLib::DNSServiceRegister(Reference* sdRef, std::uint32_t flags,
                                    std::uint32_t interfaceIndex, const char* name,
                                    const char* regtype, const char* domain, const char* host,
                                    std::uint16_t port, std::uint16_t txtLength, const void* txt,
                                    RegisterReply callback, void* context) {
    return call(m_functions.enrol, sdRef, flags, interfaceIndex, name, regtype, domain, host, port,
                txtLength, txt, callback, context);
}

int cBonjourLib::DNSServiceBrowse(Reference* sdRef, std::uint32_t flags,
                                  std::uint32_t interfaceIndex, const char* regtype,
                                  const char* domain, BrowseReply callback, void* context) {
    return call(m_functions.browse, sdRef, flags, interfaceIndex, regtype, domain, callback,
                context);
}

int cBonjourLib::DNSServiceResolve(Reference* sdRef, std::uint32_t flags,
                                   std::uint32_t interfaceIndex, const char* name,
                                   const char* regtype, const char* domain, ResolveReply callback,
                                   void* context) {
    return call(m_functions.resolve, sdRef, flags, interfaceIndex, name, regtype, domain, callback,
                context);
}

int cBonjourLib::DNSServiceProcessResult(Reference sdRef) {
    return call(m_functions.process_result, sdRef);
}

int cBonjourLib::DNSServiceRefSockFD(Reference sdRef) { return call(m_functions.socket_of, sdRef); }

void cBonjourLib::DNSServiceRefDeallocate(Reference sdRef) {
    if (m_functions.deallocate != nullptr) m_functions.deallocate(sdRef);
}

int cBonjourLib::TXTRecordGetItemAtIndex(std::uint16_t txtLength, const void* txt,
                                         std::uint16_t itemIndex, std::uint16_t keyBufferLength,
                                         char* key, std::uint8_t* valueLength, const void** value) {
    return call(m_functions.item_at, txtLength, txt, itemIndex, keyBufferLength, key, valueLength,
                value);
}
