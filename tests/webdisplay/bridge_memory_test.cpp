// bridge_memory_test.cpp - a page's calls where the renderer process has no memory left, which a
// page can bring about. No exception may pass through the runtime's frames: the fake ends the
// process then.
#include <gtest/gtest.h>

#include <new>
#include <span>
#include <string>
#include <vector>

#include "childprocess/page_bridge.h"
#include "tests/fakes/fake_cef.h"
#include "tests/support/failing_memory.h"
#include "tests/webdisplay/test_process.h"
#include "webdisplay/cef/runtime.h"

namespace pennywort {
namespace {

using namespace std::string_literals;

// A script value that takes no memory. It comes with one reference.
struct counted_value {
    cef_v8_value_t value{};
    int references = 1;

    counted_value() {
        value.base.size = sizeof value;
        value.base.release = [](cef_base_ref_counted_t* self) {
            return --reinterpret_cast<counted_value*>(self)->references == 0 ? 1 : 0;
        };
    }
};

class listening_function final : public cef::CefV8Handler {
public:
    void Execute(std::span<cef_v8_value_t* const> arguments) override { heard += arguments.size(); }
    std::size_t heard = 0;
};

TEST(PageFunctionMemory, ACallArrivesWithoutAnyAndItsArgumentsAreGivenBack) {
    const cef::own<listening_function> function(new listening_function);
    const cef::ref<cef_v8_handler_t> handler(function->counted_handler());
    counted_value values[3];
    cef_v8_value_t* const arguments[] = {&values[0].value, &values[1].value, &values[2].value};
    bool has_thrown = false;
    fail_memory_after(0);
    try {
        handler->execute(handler.get(), nullptr, nullptr, 3, arguments, nullptr, nullptr);
    } catch (const std::bad_alloc&) {
        has_thrown = true;
    }
    stop_failing_memory();
    EXPECT_FALSE(has_thrown);
    EXPECT_EQ(function->heard, 3u);
    for (const counted_value& each : values) EXPECT_EQ(each.references, 0);
}

class BridgeMemory : public testing::Test {
protected:
    void SetUp() override {
        const auto loaded = cef::load({FAKE_RUNTIME_FOLDER});
        ASSERT_TRUE(loaded) << loaded.text();
        test_process::use_arguments({"child", "--type=renderer"});
    }
    static fake_cef& fake() { return *fake_cef_control(); }
    // A renderer process with a page that makes the calls.
    static void run_page() {
        char name[] = "child", type[] = "--type=renderer";
        char* arguments[] = {name, type, nullptr};
        const cef::own<childprocess::child_app> app(new (std::nothrow) childprocess::child_app);
        if (app) cef::run_helper(2, arguments, app->counted_app());
    }
    static void expect_nothing_left() {
        EXPECT_EQ(fake().violations(), std::vector<std::string>{});
        EXPECT_EQ(fake().leaks(), "");
        EXPECT_EQ(fake().held(), "");
    }
};

// A call may be lost then. The page goes on, and nothing of it stays behind.
TEST_F(BridgeMemory, APageThatFindsNoneLeavesNothingBehind) {
    for (const int bound : {0, 2}) {
        fake().bound_of_helper(bound);
        const std::u16string text(100, u'x');
        fake().calls_of_helper({{{text, u"1"s}}, {{text, u"2"s}}, {{text, u"3"s}}}, false);
        const int failures = with_each_allocation_failing(run_page, expect_nothing_left);
        EXPECT_GT(failures, 3) << bound;
        fake().calls_of_helper({{{u"last"s, text}}}, false);
        run_page();
        ASSERT_FALSE(fake().sent().empty());
        EXPECT_EQ(fake().sent().back().arguments[0], fake_cef_value(u"last"s));
    }
}

}  // namespace
}  // namespace pennywort
