// helper_trial_test.cpp - the trial run of the runtime's helper program.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "loam/wide_text.h"
#include "tests/support/eventually.h"
#include "webdisplay/folder_claim.h"
#include "webdisplay/helper_trial.h"

namespace pennywort::webdisplay {
namespace {

namespace fs = std::filesystem;

class HelperTrial : public testing::Test {
protected:
    HelperTrial() : m_folder(loam::wide_text(make_private_folder("helper trial ж"))) {}
    ~HelperTrial() override {
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
    }
    std::string copy_named(const std::wstring& name) const {
        fs::copy_file(HELPER, m_folder / name);
        return path_of(name);
    }
    std::string path_of(const std::wstring& name) const {
        return loam::utf8_text((m_folder / name).native());
    }
    // A trial has a second of the machine's time: one that is busy with others may leave it too
    // little of that, for once.
    static helper_trial trial_with(helper_end wanted, const std::string& path) {
        helper_trial trial;
        EXPECT_TRUE(tests::eventually([&] {
            trial = try_helper(path);
            return trial.end == wanted;
        })) << trial.how;
        return trial;
    }

    const fs::path m_folder;
};

TEST_F(HelperTrial, OneThatIsMissingIsRefused) {
    const helper_trial trial = try_helper(path_of(L"missing.exe"));
    EXPECT_EQ(trial.end, helper_end::refused);
    EXPECT_NE(trial.how, "");
}

TEST_F(HelperTrial, OneThatIsNoProgramIsRefused) {
    std::ofstream(m_folder / L"text.exe") << "no program";
    EXPECT_EQ(try_helper(path_of(L"text.exe")).end, helper_end::refused);
}

// A helper of the host's own may end with any, and does where it finds no type; -1 is none of the
// system's numbers.
TEST_F(HelperTrial, AnyStatusIsFine) {
    for (const wchar_t* status : {L"1", L"3", L"255", L"-1", L"-1073"}) {
        trial_with(helper_end::fine, copy_named(std::wstring(L"status") + status + L".exe"));
    }
}

TEST_F(HelperTrial, OneOfOursSaysWhyItWouldNotWork) {
    const helper_trial trial = trial_with(helper_end::refused, copy_named(L"refuse.exe"));
    EXPECT_EQ(trial.how, "no runtime here");
}

TEST_F(HelperTrial, OneThatStandsStillHangs) {
    const helper_trial trial = trial_with(helper_end::hung, copy_named(L"sleep.exe"));
    EXPECT_EQ(trial.how, "it does not end");
}

TEST_F(HelperTrial, OneThatIsStillAtWorkIsFine) {
    trial_with(helper_end::fine, copy_named(L"work.exe"));
}

TEST_F(HelperTrial, OneThatSaysMuchIsFine) {
    trial_with(helper_end::fine, copy_named(L"talk.exe"));
}

TEST_F(HelperTrial, OneThatCrashesSaysByWhat) {
    const helper_trial trial = trial_with(helper_end::crashed, copy_named(L"crash.exe"));
    EXPECT_EQ(trial.how, "ended by the system with 0xC0000005");
}

TEST_F(HelperTrial, OneThatIsWellIsFineWhateverItsPath) {
    const helper_trial trial = trial_with(helper_end::fine, copy_named(L"all well 日本.exe"));
    EXPECT_EQ(trial.how, "");
}

}  // namespace
}  // namespace pennywort::webdisplay
