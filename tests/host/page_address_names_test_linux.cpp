// page_address_names_test_linux.cpp - file names that Windows does not allow or takes otherwise,
// and files that it does not have.
#include <sys/stat.h>

#include "tests/host/page_address_fixture.h"

namespace pennywort::host {
namespace {

class PageAddressNames : public page_address_fixture {};

TEST_F(PageAddressNames, BytesThatAUrlCannotHoldAreEncoded) {
    folder.write("50% #1 \"ä\"?.html", "x");
    EXPECT_EQ(url_of("50% #1 \"ä\"?.html"), here("50%25%20%231%20%22%C3%A4%22%3F.html"));
}

TEST_F(PageAddressNames, ParametersMayBeAFilesName) {
    folder.write("score.html", "x");
    folder.write("score.html?home=A", "x");
    EXPECT_EQ(url_of("score.html?home=A"), here("score.html%3Fhome=A"));
}

// Windows takes the two parts out before it looks.
TEST_F(PageAddressNames, AFolderOnTheWayHasToBeThere) {
    folder.write("page.html", "x");
    EXPECT_EQ(url_of("./nowhere/../page.html"), "refused");
}

TEST_F(PageAddressNames, AFileMayHaveAColonInItsName) {
    folder.write("clip:2.html", "x");
    EXPECT_EQ(url_of("clip:2.html"), here("clip:2.html"));
}

// To open one without a writer never ends.
TEST_F(PageAddressNames, APipeIsNoPage) {
    ASSERT_EQ(::mkfifo("pipe", 0600), 0);
    EXPECT_EQ(url_of("pipe"), "refused");
    EXPECT_EQ(reason, "pipe: is a pipe or a device, not a page");
    EXPECT_EQ(url_of(here("pipe")), "refused");
}

}  // namespace
}  // namespace pennywort::host
