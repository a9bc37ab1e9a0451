// sound_test.cpp - the sound of a page: who hears it, on which threads, and who does not.
#include <atomic>
#include <thread>

#include "loam/trace.h"
#include "tests/webdisplay/fake_runtime_test.h"

namespace {

using samples = std::vector<std::vector<float>>;

class sound_listener : public cBrowserAudioReceiverInterface {
public:
    void AudioStarted(long channels, long sampleRate) override {
        note("started " + std::to_string(channels) + " " + std::to_string(sampleRate));
    }
    void AudioPacket(const float* const* values, long channels, long frames,
                     std::int64_t milliseconds) override {
        note("packet " + std::to_string(frames) + " at " + std::to_string(milliseconds));
        heard.clear();
        for (long i = 0; i < channels; ++i) heard.emplace_back(values[i], values[i] + frames);
        if (on_packet) on_packet();
    }
    void AudioStopped() override { note("stopped"); }

    std::vector<std::string> events;
    samples heard;
    std::function<void()> on_packet;
    std::vector<std::thread::id> threads;

private:
    void note(const std::string& event) {
        events.push_back(event);
        threads.push_back(std::this_thread::get_id());
    }
};

using events = std::vector<std::string>;

class SoundTest : public FakeRuntimeTest {
protected:
    static zRecord sounding_page() {
        zRecord settings = page("http://a/");
        settings.SetBool("web_sound", true);
        return settings;
    }
    static bool begin() {
        int channels = 0, sample_rate = 0;
        bool is_heard = false, is_over = false;
        fake().post([&] {
            is_heard = fake().sound_begins(1, channels, sample_rate);
            is_over = true;
        });
        EXPECT_TRUE(loop_until([&] { return is_over; }));
        if (is_heard) {
            EXPECT_EQ(channels, 2);
            EXPECT_EQ(sample_rate, 48'000);
        }
        return is_heard;
    }
    // On a thread of its own, as the real runtime does.
    static void packet(std::int64_t milliseconds, const samples& values = {{1, 2}, {3, 4}}) {
        std::thread([&] { fake().sound(1, values, milliseconds); }).join();
    }
    static void end(const std::string& error = {}) {
        bool is_over = false;
        fake().post([&] {
            fake().sound_ends(1, error);
            is_over = true;
        });
        EXPECT_TRUE(loop_until([&] { return is_over; }));
    }
};

TEST_F(SoundTest, IsLeftToTheMachineUnlessItIsAskedFor) {
    start();
    screen s(page("http://a/"));
    sound_listener hears;
    s->SetAudioReceiver(&hears);
    show(s);
    EXPECT_FALSE(begin());
    EXPECT_EQ(count_of(fake().handlers(1), "audio"), 0);
    EXPECT_FALSE(fake().browser(1).is_muted);
    EXPECT_TRUE(hears.events.empty());
}

TEST_F(SoundTest, ArrivesAsItIsOnTheRuntimesThread) {
    start();
    screen s(sounding_page());
    sound_listener hears;
    s->SetAudioReceiver(&hears);
    show(s);
    ASSERT_TRUE(begin());
    packet(1000, {{0.5f, -1}, {0.25f, 1}});
    packet(1010);
    end();
    EXPECT_EQ(hears.events,
              (events{"started 2 48000", "packet 2 at 1000", "packet 2 at 1010", "stopped"}));
    EXPECT_EQ(hears.heard, (samples{{1, 2}, {3, 4}}));
    EXPECT_NE(hears.threads[0], std::this_thread::get_id());
    EXPECT_EQ(hears.threads.back(), std::this_thread::get_id());
    s->SetAudioReceiver(nullptr);
}

TEST_F(SoundTest, AnErrorIsAnEndToo) {
    start();
    screen s(sounding_page());
    sound_listener hears;
    s->SetAudioReceiver(&hears);
    show(s);
    ASSERT_TRUE(begin());
    packet(1);
    end("no device");
    packet(2);
    EXPECT_EQ(hears.events, (events{"started 2 48000", "packet 2 at 1", "stopped"}));
    ASSERT_TRUE(begin());
    packet(3);
    EXPECT_EQ(hears.events.back(), "packet 2 at 3");
    EXPECT_EQ(hears.events[3], "started 2 48000");
    s->SetAudioReceiver(nullptr);
}

TEST_F(SoundTest, AReceiverThatComesLateIsToldTheFormatFirst) {
    start();
    screen s(sounding_page());
    show(s);
    ASSERT_TRUE(begin());
    packet(1);
    sound_listener first, second;
    s->SetAudioReceiver(&first);
    packet(2);
    s->SetAudioReceiver(&second);
    packet(3);
    s->SetAudioReceiver(nullptr);
    packet(4);
    end();
    EXPECT_EQ(first.events, (events{"started 2 48000", "packet 2 at 2"}));
    EXPECT_EQ(second.events, (events{"started 2 48000", "packet 2 at 3"}));
}

TEST_F(SoundTest, AReceiverMayTakeItselfAway) {
    start();
    screen s(sounding_page());
    sound_listener hears;
    hears.on_packet = [&] { s->SetAudioReceiver(nullptr); };
    s->SetAudioReceiver(&hears);
    show(s);
    ASSERT_TRUE(begin());
    packet(1);
    packet(2);
    EXPECT_EQ(hears.events, (events{"started 2 48000", "packet 2 at 1"}));
}

// The display thread waits for that of the packet meanwhile, as the real runtime makes it when a
// page ends. Else Close would wait for ten seconds, and trace that it did.
TEST_F(SoundTest, AReceiverThatClosesItsDisplayAgainstTheRulesDoesNotWaitForItself) {
    start();
    screen s(sounding_page());
    sound_listener hears;
    std::vector<std::string> traces;
    s->SetAudioReceiver(&hears);
    show(s);
    ASSERT_TRUE(begin());
    zTraceManager::Default()->SetSink([&](const char* text) { traces.push_back(text); });
    hears.on_packet = [&] { s->Close(); };
    packet(1);
    zTraceManager::Default()->SetSink({});
    EXPECT_EQ(traces, events{});
    EXPECT_TRUE(loop_until([] { return fake().browser(1).closed; }));
    s->SetAudioReceiver(nullptr);
}

TEST_F(SoundTest, AfterTheDisplayHasGonePacketsAreHarmless) {
    script().keep_clients = true;
    start();
    sound_listener hears;
    {
        screen s(sounding_page());
        s->SetAudioReceiver(&hears);
        show(s);
        ASSERT_TRUE(begin());
        packet(1);
    }
    packet(2);
    EXPECT_EQ(hears.events, (events{"started 2 48000", "packet 2 at 1"}));
}

// The display ends while packets come without a pause.
TEST_F(SoundTest, PacketsAndTheEndMayMeet) {
    script().keep_clients = true;
    start();
    std::atomic<bool> is_over{false};
    std::thread sounding;
    sound_listener hears;
    {
        screen s(sounding_page());
        s->SetAudioReceiver(&hears);
        show(s);
        ASSERT_TRUE(begin());
        std::atomic<int> sent{0};
        sounding = std::thread([&is_over, &sent] {
            while (!is_over) {
                fake().sound(1, {{1, 2}, {3, 4}}, 1);
                if (sent < 100) ++sent;
            }
        });
        EXPECT_TRUE(loop_until([&] { return sent == 100; }));
        s->SetAudioReceiver(nullptr);
        const auto heard = hears.events.size();
        EXPECT_GE(heard, 100u);
        loop_works(5);
        EXPECT_EQ(hears.events.size(), heard);
        is_over = true;
        sounding.join();
    }
}

TEST_F(SoundTest, AWindowThatThePageOpensIsNotHeard) {
    start();
    screen s(sounding_page());
    sound_listener hears;
    s->SetAudioReceiver(&hears);
    show(s);
    int popup = 0;
    fake().post([&] { popup = fake().open_popup(1, "http://b/", false); });
    ASSERT_TRUE(loop_until([&] { return popup != 0; }));
    int channels = 0, sample_rate = 0;
    bool is_over = false;
    fake().post([&] {
        fake().sound_begins(popup, channels, sample_rate);
        fake().sound(popup, {{1}, {2}}, 1);
        fake().sound_ends(popup, {});
        is_over = true;
    });
    ASSERT_TRUE(loop_until([&] { return is_over; }));
    EXPECT_TRUE(hears.events.empty());
    s->SetAudioReceiver(nullptr);
}

TEST_F(SoundTest, APageCanBeMuted) {
    start();
    auto settings = page("http://a/");
    settings.SetBool("web_muted", true);
    settings.SetBool("web_sound", true);
    screen s(settings);
    show(s);
    EXPECT_FALSE(begin());
    EXPECT_TRUE(loop_until([] { return fake().browser(1).is_muted; }));
}

// The runtime opens the sound of a page again when it shows another one.
TEST_F(SoundTest, AMutedDisplayStaysMutedFromPageToPage) {
    start();
    auto settings = page("http://a/");
    settings.SetBool("web_muted", true);
    screen s(settings);
    show(s);
    EXPECT_TRUE(loop_until([] { return fake().browser(1).is_muted; }));
    s->LoadUrl("http://b/");
    ASSERT_TRUE(loop_until([&] { return s.seen.heard("loaded http://b/"); }));
    EXPECT_TRUE(loop_until([] { return fake().browser(1).is_muted; }));
}

}  // namespace
