// fake_dnssd_partial.cpp - a DNS-SD library that lacks the function whose number it is built with;
// 0 lacks none, 8 lacks all. What is there says that it was called.
#include "bonjour.h"

extern "C" {

using reference = cBonjourLib::Reference;

PENNYWORT_API int fake_dnssd_is_partial() { return 0; }

#if FAKE_DNSSD_LACKS != 8
#if FAKE_DNSSD_LACKS != 1
PENNYWORT_API void DNSServiceRefDeallocate(reference) {}
#endif
#if FAKE_DNSSD_LACKS != 2
PENNYWORT_API int DNSServiceProcessResult(reference) { return 2; }
#endif
#if FAKE_DNSSD_LACKS != 3
PENNYWORT_API int DNSServiceRefSockFD(reference) { return 3; }
#endif
#if FAKE_DNSSD_LACKS != 4
PENNYWORT_API int DNSServiceBrowse(reference*, std::uint32_t, std::uint32_t, const char*,
                                   const char*, cBonjourLib::BrowseReply, void*) {
    return 4;
}
#endif
#if FAKE_DNSSD_LACKS != 5
PENNYWORT_API int DNSServiceResolve(reference*, std::uint32_t, std::uint32_t, const char*,
                                    const char*, const char*, cBonjourLib::ResolveReply, void*) {
    return 5;
}
#endif
#if FAKE_DNSSD_LACKS != 6
PENNYWORT_API int DNSServiceRegister(reference*, std::uint32_t, std::uint32_t, const char*,
                                     const char*, const char*, const char*, std::uint16_t,
                                     std::uint16_t, const void*, cBonjourLib::RegisterReply,
                                     void*) {
    return 6;
}
#endif
#if FAKE_DNSSD_LACKS != 7
PENNYWORT_API int TXTRecordGetItemAtIndex(std::uint16_t, const void*, std::uint16_t, std::uint16_t,
                                          char*, std::uint8_t*, const void**) {
    return 7;
}
#endif
#endif

}  // extern "C"
