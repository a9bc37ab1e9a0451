// path_test_win.cpp - paths as only Windows has them: drives, servers, and no name that is not
// UTF-8.
#include <gtest/gtest.h>

#include <string>

#include "loam/path.h"

namespace {

std::string parent_of(const char* path) { return zFSPath(path).GoParent(); }

TEST(WindowsPath, StopsAtADriveAndAtAServer) {
    EXPECT_EQ(parent_of("C:\\Users\\host\\"), "C:\\Users");
    EXPECT_EQ(parent_of("C:/Users"), "C:/");
    EXPECT_EQ(parent_of("C:\\"), "C:\\");
    EXPECT_EQ(parent_of("C:"), "C:");
    EXPECT_EQ(parent_of("C:name"), "C:");
    EXPECT_EQ(parent_of("\\\\server\\share\\folder"), "\\\\server\\share");
    EXPECT_EQ(parent_of("\\\\server\\share"), "\\\\server\\");
    EXPECT_EQ(parent_of("\\\\server"), "\\\\server");
    EXPECT_EQ(parent_of("\\folder"), "\\");
    EXPECT_EQ(parent_of("one\\two/three"), "one\\two");
}

TEST(WindowsPath, ThatIsNotUtf8IsNoFolderAndThrowsNothing) {
    EXPECT_LT(zDirectory::MakeSureExists("C:\\none\\\xff\xfe"), 0);
    EXPECT_EQ(parent_of("C:\\\xff\xfe\\a"), "C:\\\xff\xfe");
}

}  // namespace
