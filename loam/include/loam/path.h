// loam/path.h - zFSPath, path arithmetic without looking at the disk, and zDirectory.
#pragma once

#include "loam/export.h"
#include "loam/string.h"
#include "loam/types.h"

// A path in UTF-8 with the system's separator ('/' or '\\'). Threads: as zString.
class LOAM_API zFSPath {
public:
    explicit zFSPath(const char* path = "");
    ~zFSPath();
    zFSPath(const zFSPath& other) = default;
    zFSPath& operator=(const zFSPath& other) = default;
    const zFSPath& operator=(const zString& path);

    // Cuts off the last part, with the separators around it, and returns the path. A root stays
    // what it is; a path of one part becomes empty. "." and ".." count as parts like any other.
    const char* GoParent();
    // Adds a part, or several with separators between them, and returns the path. There is one
    // separator at the seam, whatever the two sides bring. An empty or null child changes nothing.
    const char* GoChild(const char* child);
    // Never null; valid until the path changes or ends.
    const char* CString() const;

private:
    zString m_path;
};

class LOAM_API zDirectory {
public:
    // Creates the directory and its parents with the rights that the process's mask leaves. 0 also
    // when it is there already; -1 when it cannot be made, for instance because a file is in the
    // way, and for an empty or null path. From any thread.
    static zStatus MakeSureExists(const char* path);
};
