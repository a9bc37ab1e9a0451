// url_string.h - zURLString puts a URL together and takes one apart.
//
// Threads: not locked; Get may be called from any thread at once.
#pragma once

#include <cstdint>

#include "loam/export.h"
#include "loam/string.h"
#include "loam/types.h"

class LOAM_API zURLString {
public:
    // Puts the parts together as they are: "scheme://userInfo@host/path". `host` may hold a port. A
    // part that is null or empty is left out with its mark.
    zURLString(const char* scheme, const char* userInfo, const char* host, const char* path);
    zURLString(const zURLString&) = default;
    zURLString& operator=(const zURLString&) = default;
    virtual ~zURLString();

    // The whole URL; never null.
    const char* CString() const;

    // Takes `url` apart. `path` has no leading slash and keeps its query, so that "/" and the path
    // are what a request asks for; `host` keeps no brackets; `port` is 0 where there is none. Any
    // of the places may be null. -1, with all of them empty, for a URL without a scheme and a host,
    // or with a port that is no number of 1 to 65535.
    static zStatus Get(const char* url, zString* scheme, zString* userInfo, zString* host,
                       std::int32_t* port, zString* path, zString* fragment);

private:
    zString m_text;
};
