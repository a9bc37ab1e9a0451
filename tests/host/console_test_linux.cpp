// tests/host/console_test_linux.cpp - the program's own outputs where the system refuses what makes
// them its own. Each test ends a process of its own, whose outputs and descriptors it spoils.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "host/system/console.h"

namespace pennywort::host {
namespace {

// How the process ends that tries one.
enum end { k_fine = 0, k_refused = 3, k_refused_otherwise = 4, k_let_through = 5 };

end status_of(const std::system_error& error) {
    return error.code().value() == EMFILE ? k_refused : k_refused_otherwise;
}

// To look at an object's type clang's sanitizer opens a pipe, once for each type: without this it
// would call what is thrown later, where there is no descriptor, an object of another type.
void let_types_be_seen() {
    try {
        throw std::system_error(EMFILE, std::generic_category(), "seen");
    } catch (const std::system_error& error) {
        static_cast<void>(status_of(error));
    }
}

// Room for so many descriptors more than those that are open.
void leave_descriptors(int count) {
    let_types_be_seen();
    int free = 0;
    for (int next = 0; free < count + 1; ++next) {
        if (::fcntl(next, F_GETFD) < 0 && ++free == count + 1) {
            const rlimit bound{static_cast<rlim_t>(next), static_cast<rlim_t>(next)};
            ::setrlimit(RLIMIT_NOFILE, &bound);
        }
    }
}

[[noreturn]] void try_one() {
    try {
        const console out(console::others::quiet);
    } catch (const std::system_error& error) {
        ::_exit(status_of(error));
    }
    ::_exit(k_fine);
}

// What the browser writes would stand in the film if this went unnoticed.
TEST(ConsoleDeathTest, IsRefusedWhileAnyOfItsDescriptorsCannotBeHad) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // A copy of each output, and then one at a time for where the rest goes.
    constexpr int k_needed = 3;
    for (int left = 0; left < k_needed; ++left) {
        EXPECT_EXIT(
            {
                leave_descriptors(left);
                try_one();
            },
            testing::ExitedWithCode(k_refused), "")
            << left;
    }
    EXPECT_EXIT(
        {
            leave_descriptors(k_needed);
            try_one();
        },
        testing::ExitedWithCode(k_fine), "");
}

// An output that was closed from the start refuses what is written to it, and what others write
// there goes nowhere.
TEST(ConsoleDeathTest, AClosedOutputTakesNothingAndSaysSo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::close(STDOUT_FILENO);
            const console out(console::others::heard);
            const bool is_told = !out.has_output();
            const bool is_taken =
                std::fputs("a line\n", out.output()) >= 0 && std::fflush(out.output()) == 0;
            const bool is_discarded = ::write(STDOUT_FILENO, "x", 1) == 1;
            ::_exit(is_told && !is_taken && is_discarded ? k_fine : k_let_through);
        },
        testing::ExitedWithCode(k_fine), "");
}

// What others write goes nowhere, what the program writes arrives, and both outputs are what they
// were afterwards.
TEST(ConsoleDeathTest, KeepsItsOutputsApartFromThoseOfOthersAndGivesThemBack) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            {
                const console out(console::others::quiet);
                static_cast<void>(::write(STDERR_FILENO, "others\n", 7));
                std::fputs("ours\n", out.errors());
            }
            static_cast<void>(::write(STDERR_FILENO, "after\n", 6));
            ::_exit(k_fine);
        },
        testing::ExitedWithCode(k_fine), "^ours\nafter\n$");
}

}  // namespace
}  // namespace pennywort::host
