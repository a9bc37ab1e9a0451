// helper_trial_test_linux.cpp - the trial run of the runtime's helper program, with scripts as
// helpers. On Windows: tests/windows/helper_trial_test.cpp.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

#include "tests/support/eventually.h"
#include "webdisplay/folder_claim.h"
#include "webdisplay/helper_trial.h"

namespace pennywort::webdisplay {
namespace {

namespace fs = std::filesystem;

struct trial_case {
    const char* name;
    const char* helper;
    helper_end end;
    const char* how;
};
void PrintTo(const trial_case& c, std::ostream* out) { *out << c.name; }

class HelperTrial : public testing::TestWithParam<trial_case> {
protected:
    HelperTrial() : m_folder(make_private_folder("helper-trial")) {}
    ~HelperTrial() override {
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
    }
    const fs::path m_folder;
};

// A status says nothing: a helper of the host's own, started without a type, ends with any.
const trial_case k_cases[] = {
    {"AllWell", "#!/bin/sh\nexit 0", helper_end::fine, ""},
    {"Status1", "#!/bin/sh\nexit 1", helper_end::fine, ""},
    {"Status127", "#!/bin/sh\nexit 127", helper_end::fine, ""},
    {"Status255", "#!/bin/sh\nexit 255", helper_end::fine, ""},
    {"OtherWords", "#!/bin/sh\necho no type; exit 255", helper_end::fine, ""},
    {"MuchToSay", "#!/bin/sh\nhead -c 1000000 /dev/zero; exit 0", helper_end::fine, ""},
    {"AtWork", "#!/bin/sh\nwhile :; do :; done", helper_end::fine, ""},
    {"OursThatRefuses", "#!/bin/sh\necho 'self-check failed: no runtime'; exit 1",
     helper_end::refused, "no runtime"},
    {"Crash", "#!/bin/sh\nkill -SEGV $$", helper_end::crashed, "ended by signal 11"},
    {"StandsStill", "#!/bin/sh\nexec sleep 600", helper_end::hung, "it does not end"},
    {"Text", "no program", helper_end::refused, "Exec format error"},
};

// A trial has a second of the machine's time: one that is busy with others may leave it too little
// of that, for once.
TEST_P(HelperTrial, TellsWhatWouldTakeTheHostWithIt) {
    const fs::path helper = m_folder / "helper";
    std::ofstream(helper) << GetParam().helper;
    fs::permissions(helper, fs::perms::owner_all);
    helper_trial trial;
    EXPECT_TRUE(tests::eventually([&] {
        trial = try_helper(helper.string());
        return trial.end == GetParam().end;
    })) << trial.how;
    EXPECT_EQ(trial.how, GetParam().how);
}
INSTANTIATE_TEST_SUITE_P(All, HelperTrial, testing::ValuesIn(k_cases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(HelperTrialPath, OneThatIsMissingIsRefused) {
    const helper_trial trial = try_helper("/nowhere/helper");
    EXPECT_EQ(trial.end, helper_end::refused);
    EXPECT_EQ(trial.how, "No such file or directory");
}

}  // namespace
}  // namespace pennywort::webdisplay
