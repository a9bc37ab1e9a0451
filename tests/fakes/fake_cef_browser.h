// fake_cef_browser.h - the objects by which a caller holds a page of the fake runtime. Each call
// that answers one makes a new one, as the real runtime's wrapper does: two pointers of one page
// differ.
#pragma once

#include <memory>
#include <string>

#include "tests/fakes/fake_cef_object.h"
#include "tests/fakes/fake_cef_page.h"

namespace fake {

class browser_object final : public object<browser_object, cef_browser_t> {
public:
    explicit browser_object(std::shared_ptr<page> shown);
    page& shown(const char* operation);
    void ended() { m_page.reset(); }

private:
    std::shared_ptr<page> m_page;
};

// What a browser is made with.
void note_terms(cef_dictionary_value_t* extra_info, fake_cef_browser& record);

class host_object final : public object<host_object, cef_browser_host_t> {
public:
    explicit host_object(std::shared_ptr<page> shown);
    void ended() { m_page.reset(); }

private:
    void set_window_operations();
    void set_paint_operations();
    void set_inspector_operations();
    page& shown(const char* operation);

    std::shared_ptr<page> m_page;
};

// The page that its main frame shows.
class entry_object final : public object<entry_object, cef_navigation_entry_t> {
public:
    explicit entry_object(std::shared_ptr<page> shown);
    void ended() { m_page.reset(); }

private:
    std::shared_ptr<page> m_page;
};

// As long as it lives, the observer hears the inspector.
class inspector_registration final : public object<inspector_registration, cef_registration_t> {
public:
    inspector_registration(std::shared_ptr<page> watched,
                           cef_dev_tools_message_observer_t* observer);
    void ended();

private:
    std::shared_ptr<page> m_page;
};

class frame_object final : public object<frame_object, cef_frame_t> {
public:
    frame_object(std::shared_ptr<page> shown, bool main_frame, std::string url_of_sub_frame);
    void ended() { m_page.reset(); }

private:
    page& shown(const char* operation);
    std::string url();
    void run(const cef_string_t* code, const cef_string_t* url, int line);

    std::shared_ptr<page> m_page;
    bool m_main;
    std::string m_sub_url;
};

}  // namespace fake
