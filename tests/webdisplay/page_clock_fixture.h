// page_clock_fixture.h - displays whose pages live by a clock of their own, on the fake runtime.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/webdisplay/fake_runtime_test.h"

class PageClockFixture : public FakeRuntimeTest {
protected:
    using ends = std::vector<cWebDisplayPageFrame>;
    static constexpr auto k_painted = cWebDisplayPageFrame::Painted;
    static constexpr auto k_unchanged = cWebDisplayPageFrame::Unchanged;
    static constexpr auto k_failed = cWebDisplayPageFrame::Failed;

    void start_with_page_clocks() {
        script().one_frame_at_a_time = true;
        cWebDisplayCEFBrowserManager::EnablePageClock(7);
        start();
    }
    static zRecord on_page_clock(const char* url) {
        zRecord settings = page(url);
        settings.SetBool("web_page_clock", true);
        return settings;
    }
    // Asks for a frame; how it ended goes to m_ends.
    bool ask(screen& shown, std::int64_t microseconds) {
        return shown->AdvancePage(microseconds, [this](cWebDisplayPageFrame how) { told(how); });
    }
    // The host does this when it is told of so many frames.
    void when_told(std::size_t count, std::function<void()> work) {
        m_work.emplace(count, std::move(work));
    }
    bool wait_for_ends(std::size_t count) {
        return loop_until([&] { return m_ends.size() >= count; });
    }
    static cWebDisplayPageStatus status_of(screen& shown) {
        cWebDisplayPageStatus status;
        shown->GetPageStatus(status);
        return status;
    }
    static std::string fault(screen& shown) {
        return std::string(status_of(shown).frameFault.View());
    }

    ends m_ends;

private:
    void told(cWebDisplayPageFrame how) {
        m_ends.push_back(how);
        const auto work = m_work.extract(m_ends.size());
        if (work) work.mapped()();
    }

    std::map<std::size_t, std::function<void()>> m_work;
};
