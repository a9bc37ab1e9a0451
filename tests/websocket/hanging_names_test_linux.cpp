// hanging_names_test_linux.cpp - "pennywort ws" where the system does not come to an end with a
// name, whose thread nobody can end or wait for.
#include <gtest/gtest.h>

#include <string>

#include "tests/host/program.h"

namespace pennywort::host {
namespace {

TEST(WsProgram, ALookUpThatHangsHoldsNeitherTheOpeningNorTheEnd) {
    const program_folder folder;
    for (const char* transport : {"--managed", "--system"}) {
        const program_run run =
            folder.run("rm -f asked; HANGING_NAMES=asked LD_PRELOAD='" PENNYWORT_HANGING_NAMES
                       "' timeout 60 '" PENNYWORT_PROGRAM "' ws ws://a.name/ --timeout 3 " +
                       std::string(transport) + " </dev/null");
        EXPECT_EQ(run.status, 1) << transport;
        EXPECT_TRUE(folder.has("asked"));
        EXPECT_EQ(run.output, "");
        EXPECT_TRUE(run.errors.starts_with("pennywort: ws://a.name/: error ")) << run.errors;
    }
}

}  // namespace
}  // namespace pennywort::host
