// model_display.h - a display without an engine, which records what the model asks of its engine.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "webdisplay.h"

// The protected operations are there for the engine's part of a display, so they are opened here.
class model_display final : public cWebDisplayBrowser {
public:
    struct script_call {
        std::string script;
        unsigned long timeout_ms = 0;
        std::function<void(std::string)> on_result;
    };

    explicit model_display(const zRecord& settings = {}, double frame_rate = 25)
        : cWebDisplayBrowser(settings, frame_rate) {}

    bool Open() override { return true; }
    void Close() override {}
    void Repaint() override {}
    void SetSize(long, long) override {}
    void LoadNextUrl() override {
        ++next_url_calls;
        if (on_load_next) on_load_next();
    }
    bool IsLoading() const override { return false; }
    using cWebDisplayBrowser::ExecuteJavascript;
    long ExecuteJavascript(const zString& script, unsigned long timeout_ms,
                           std::function<void(std::string)> on_result) override {
        scripts.push_back({script.CString(), timeout_ms, std::move(on_result)});
        return script_answer;
    }
    void DeleteCookies(const char*) override {}
    void SetVisibility(bool) override {}

    using cWebDisplayBrowser::add_observer;
    using cWebDisplayBrowser::get_css_override;
    using cWebDisplayBrowser::handle_javascript_callback;
    using cWebDisplayBrowser::handle_page_load_failed;
    using cWebDisplayBrowser::handle_page_loaded;
    using cWebDisplayBrowser::handle_page_request;
    using cWebDisplayBrowser::m_frame_rate;
    using cWebDisplayBrowser::m_observers;
    using cWebDisplayBrowser::m_transparent;
    using cWebDisplayBrowser::m_windowless;
    using cWebDisplayBrowser::PeekNextURL;
    using cWebDisplayBrowser::PopNextURL;
    using cWebDisplayBrowser::received_javascript_exec_result;

    std::atomic<int> next_url_calls{0};
    long script_answer = 0;
    std::vector<script_call> scripts;
    std::function<void()> on_load_next;

protected:
    ~model_display() override = default;
};

// Releases a reference-counted object at the end of its scope.
template <class T>
class released {
public:
    explicit released(T* object) : m_object(object) {}
    released(const released&) = delete;
    released& operator=(const released&) = delete;
    ~released() { Release(); }
    void Release() {
        if (m_object) m_object->Release();
        m_object = nullptr;
    }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    T* get() const { return m_object; }

private:
    T* m_object;
};
