// fake_dnssd_partial.cpp - a DNS-SD library that lacks the function whose number it is built with;
// 0 lacks none, 8 lacks all. What is there says that it was called.
#include "pennywort_export.h"

extern "C" {

PENNYWORT_API int fake_dnssd_is_partial() { return 0; }

#if FAKE_DNSSD_LACKS != 8
#if FAKE_DNSSD_LACKS != 1
PENNYWORT_API void DNSServiceRefDeallocate() {}
#endif
#if FAKE_DNSSD_LACKS != 2
PENNYWORT_API int DNSServiceProcessResult() { return 2; }
#endif
#if FAKE_DNSSD_LACKS != 3
PENNYWORT_API int DNSServiceRefSockFD() { return 3; }
#endif
#if FAKE_DNSSD_LACKS != 4
PENNYWORT_API int DNSServiceBrowse() { return 4; }
#endif
#if FAKE_DNSSD_LACKS != 5
PENNYWORT_API int DNSServiceResolve() { return 5; }
#endif
#if FAKE_DNSSD_LACKS != 6
PENNYWORT_API int DNSServiceRegister() { return 6; }
#endif
#if FAKE_DNSSD_LACKS != 7
PENNYWORT_API int TXTRecordGetItemAtIndex() { return 7; }
#endif
#endif

}  // extern "C"
