// fake_cef_test.cpp - the fake runtime notices what it is there to notice. It stands for the real
// one in every test of a fault, so a rule that it does not hold would be held by nobody.
#include <gtest/gtest.h>

#include <thread>

#include <string>
#include <vector>

#include "tests/fakes/fake_cef.h"
#include "tests/fakes/fake_cef_exports.h"

namespace {

using strings = std::vector<std::string>;

fake_cef& fake() { return *fake_cef_control(); }

// Of a caller that keeps its counts, and of one that does not.
struct counted_task {
    cef_task_t c{};
    int references = 1, runs = 0;
    explicit counted_task(std::size_t size = sizeof(cef_task_t)) {
        c.base.size = size;
        c.base.add_ref = [](cef_base_ref_counted_t* self) { ++of(self).references; };
        c.base.release = [](cef_base_ref_counted_t* self) {
            return --of(self).references == 0 ? 1 : 0;
        };
        c.base.has_one_ref = [](cef_base_ref_counted_t* self) {
            return of(self).references == 1 ? 1 : 0;
        };
        c.base.has_at_least_one_ref = [](cef_base_ref_counted_t* self) {
            return of(self).references >= 1 ? 1 : 0;
        };
        c.execute = [](cef_task_t* self) { ++reinterpret_cast<counted_task*>(self)->runs; };
    }
    static counted_task& of(cef_base_ref_counted_t* base) {
        return *reinterpret_cast<counted_task*>(base);
    }
};

cef_settings_t settings_for_146(unsigned char (&memory)[448]) {
    auto& settings = *reinterpret_cast<cef_settings_t*>(memory);
    settings.size = sizeof memory;
    return settings;
}

class FakeCefTest : public testing::Test {
protected:
    void SetUp() override {
        static int tests = 0;
        ASSERT_EQ(tests++, 0) << "run one of these tests per process, as ctest does";
        fake().script().check_locales = false;
        fake().script().replace_signal_handlers = false;
    }
    void initialise() {
        cef_api_hash(13300, 0);
        settings_for_146(m_settings);
        ASSERT_EQ(cef_initialize(&m_args, reinterpret_cast<cef_settings_t*>(m_settings), nullptr,
                                 nullptr),
                  1);
    }
    static bool broken(const std::string& part) {
        for (const auto& rule : fake().violations()) {
            if (rule.find(part) != std::string::npos) return true;
        }
        return false;
    }

    alignas(8) unsigned char m_settings[448] = {};
    cef_main_args_t m_args{};
};

TEST_F(FakeCefTest, ACallBeforeTheHash) {
    cef_version_info(0);
    EXPECT_TRUE(broken("cef_version_info was called before cef_api_hash"));
}

TEST_F(FakeCefTest, ASecondStart) {
    initialise();
    EXPECT_EQ(
        cef_initialize(&m_args, reinterpret_cast<cef_settings_t*>(m_settings), nullptr, nullptr),
        0);
    EXPECT_TRUE(broken("second time"));
    cef_shutdown();
}

TEST_F(FakeCefTest, SettingsOfTheWrongSizeAreRefused) {
    cef_api_hash(13300, 0);
    cef_settings_t settings{};
    settings.size = sizeof settings;
    EXPECT_EQ(cef_initialize(&m_args, &settings, nullptr, nullptr), 0);
}

TEST_F(FakeCefTest, WorkInsideWork) {
    initialise();
    fake().post([] { cef_do_message_loop_work(); });
    cef_do_message_loop_work();
    EXPECT_TRUE(broken("inside itself"));
    cef_shutdown();
}

TEST_F(FakeCefTest, WorkOnAnotherThread) {
    initialise();
    std::thread([] { cef_do_message_loop_work(); }).join();
    EXPECT_TRUE(broken("another thread"));
    cef_shutdown();
}

TEST_F(FakeCefTest, AStringThatIsNotFreedAndOneThatIsFreedTwice) {
    cef_api_hash(13300, 0);
    cef_string_t text{};
    cef_string_utf8_to_utf16("abc", 3, &text);
    EXPECT_EQ(fake().leaks(), "string 1");
    EXPECT_EQ(std::u16string(text.str, text.length), u"abc");
    cef_string_utf16_clear(&text);
    EXPECT_EQ(fake().leaks(), "");
}

TEST_F(FakeCefTest, AStringThatIsLongerThanItsText) {
    initialise();
    cef_string_t name{};
    cef_string_utf8_to_utf16("abc", 3, &name);
    name.length = 4000000000u;
    cef_string_t none{};
    cef_string_utf16_cmp(&none, &none);
    EXPECT_EQ(fake().violations(), strings{});
    name.length = 4;
    cef_string_t copy = name;
    cef_process_message_t* message = cef_process_message_create(&copy);
    EXPECT_TRUE(broken("longer than its text"));
    message->base.release(&message->base);
    name.length = 3;
    cef_string_utf16_clear(&name);
    cef_shutdown();
}

TEST_F(FakeCefTest, AnObjectThatIsNotReleasedReleasedTwiceOrUsedLate) {
    cef_api_hash(13300, 0);
    cef_list_value_t* list = cef_list_value_create();
    EXPECT_EQ(fake().leaks(), "list 1");
    EXPECT_EQ(list->base.release(&list->base), 1);
    EXPECT_EQ(fake().leaks(), "");
    list->get_size(list);
    EXPECT_TRUE(broken("used after its last release"));
    list->base.release(&list->base);
    EXPECT_TRUE(broken("released too often"));
    list->base.add_ref(&list->base);
    EXPECT_TRUE(broken("a dead list was referenced"));
}

TEST_F(FakeCefTest, ATaskIsRunOnceAndGivenBack) {
    initialise();
    counted_task task;
    EXPECT_EQ(cef_post_task(TID_UI, &task.c), 1);
    EXPECT_EQ(task.references, 1) << "the argument's reference is the runtime's now";
    EXPECT_EQ(fake().held(), "task 1");
    cef_do_message_loop_work();
    cef_do_message_loop_work();
    EXPECT_EQ(task.runs, 1);
    EXPECT_EQ(task.references, 0);
    EXPECT_EQ(fake().held(), "");
    cef_shutdown();
}

TEST_F(FakeCefTest, ATaskThatWaitsAtTheEndIsGivenBackUnrun) {
    initialise();
    counted_task task;
    cef_post_task(TID_UI, &task.c);
    cef_shutdown();
    EXPECT_EQ(task.runs, 0);
    EXPECT_EQ(task.references, 0);
    counted_task late;
    EXPECT_EQ(cef_post_task(TID_UI, &late.c), 0);
    EXPECT_EQ(late.references, 0);
}

TEST_F(FakeCefTest, AStructOfTheWrongSizeOrWithoutAReference) {
    initialise();
    counted_task odd(17), dead;
    dead.references = 0;
    cef_post_task(TID_UI, &odd.c);
    EXPECT_TRUE(broken("task has the wrong size"));
    cef_post_task(TID_UI, &dead.c);
    EXPECT_TRUE(broken("task was handed out without a reference"));
    cef_shutdown();
}

TEST_F(FakeCefTest, TextThatIsNoUtf) {
    cef_api_hash(13300, 0);
    cef_string_utf16_t wide{};
    EXPECT_EQ(cef_string_utf8_to_utf16("a\xC3\xA9\xF0\x9F\x8E\xA5", 7, &wide), 1);
    EXPECT_EQ(std::u16string(wide.str, wide.length), u"a\u00E9\U0001F3A5");
    EXPECT_EQ(cef_string_utf8_to_utf16("a\xC3|\xED\xA0\x80\xC0\x80", 8, &wide), 0);
    EXPECT_EQ(wide.str[1], 0xFFFD);
    EXPECT_EQ(wide.str[2], u'|');
    cef_string_utf16_clear(&wide);
    cef_string_utf8_t narrow{};
    const char16_t half[] = {u'a', 0xDC00, 0xD83D, 0xDFA5};
    EXPECT_EQ(cef_string_utf16_to_utf8(half, 4, &narrow), 0);
    EXPECT_EQ(std::string(narrow.str, narrow.length), "a\xEF\xBF\xBD\xF0\x9F\x9E\xA5");
    cef_string_utf8_clear(&narrow);
}

}  // namespace
