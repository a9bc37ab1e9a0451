// webdisplay.h - shows web pages off screen: each painted frame goes to a video renderer of the
// host, and scripts of the page and the host can call each other.
//
// Threads: cWebDisplayCEFBrowserManager::Startup fixes the display thread, which must run a message
// loop (zMessageLoop::Run, or any loop that iterates the same GLib context; a window message loop
// on Windows). Everything the page reports (frames, loads, script results) arrives on that thread.
// Operations of a display may be called from any thread unless they say otherwise.
//
// Receivers are not owned. Setting another one, or null, waits for a call in progress on another
// thread to return; after that the old receiver is not called again and may be destroyed.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "loam/critical.h"
#include "loam/point.h"
#include "loam/record.h"
#include "loam/ref_count.h"
#include "loam/signal.h"
#include "loam/string.h"
#include "loam/window_types.h"
#include "pennywort_export.h"

namespace pennywort::webdisplay {
class display_engine;
class message_pump;
class webdisplay_browser_client;
struct display_state;
struct webdisplay_cef_state;
}  // namespace pennywort::webdisplay

// Receives the painted frames.
class PENNYWORT_API cBrowserVideoRendererInterface {
public:
    cBrowserVideoRendererInterface() = default;
    virtual ~cBrowserVideoRendererInterface();

    // The size in pixels that this renderer works at.
    virtual void GetSize(long& width, long& height) const = 0;

    // One whole frame: width x height pixels of 4 bytes, in the order blue, green, red, alpha,
    // colour premultiplied by alpha; rows from top to bottom without padding. `pixels` is valid
    // during the call only. `isPopup` tells the frame of a pop-up widget (an open select list) from
    // the page's own. Called on the display thread; it must not wait for anything.
    virtual void BrowserPainted(const void* pixels, long width, long height, bool isPopup) = 0;
};

// Hears what becomes of the pages. Called on the display thread. Override what is needed.
class PENNYWORT_API cBrowserPageCallbackHandler {
public:
    cBrowserPageCallbackHandler() = default;
    virtual ~cBrowserPageCallbackHandler();

    // A page, or a frame of it, could not be loaded. The queue of URLs goes on with the next one.
    virtual void PageLoadFailed(const zString& url, const zString& error);

    // The main frame of a page has finished loading.
    virtual void PageLoaded(const zString& url);

    // Whether the main frame may fetch `url`: asked for the page and for each resource of it. False
    // cancels the request.
    virtual bool PageRequest(const zString& url);
};

// Answers the page's calls of window.hostApp.execute(name, argument). Called on the display thread.
class PENNYWORT_API cBrowserJavascriptCallbackHandler {
public:
    cBrowserJavascriptCallbackHandler() = default;
    virtual ~cBrowserJavascriptCallbackHandler();

    // What is put into `result` goes back to the page as hostAppCallback(name, result). Neither
    // text is escaped on the way: one with a quote in it breaks that call in the page.
    virtual void JavascriptCallback(const zString& name, const zString& argument, zString& result);
};

// Receives the sound of a page whose display was made with "web_sound". Called on a thread of the
// runtime's, AudioStopped on the display thread too, one call at a time; none of them must wait.
// With "web_page_clock" all on the display thread. A receiver may take itself away, and must not
// close or release its display: see docs/threads.md.
class PENNYWORT_API cBrowserAudioReceiverInterface {
public:
    cBrowserAudioReceiverInterface() = default;
    virtual ~cBrowserAudioReceiverInterface();

    // The page begins to sound. Comes before the first packet, also for a receiver that is set
    // while the page sounds.
    virtual void AudioStarted(long channels, long sampleRate) = 0;
    // `frames` samples of each channel, 10 ms as a rule, from -1 to 1. They are valid during the
    // call only. `milliseconds` is the time of day, since 1970, at which they are to be heard: some
    // 34 ms after the picture that the page painted with them.
    virtual void AudioPacket(const float* const* samples, long channels, long frames,
                             std::int64_t milliseconds) = 0;
    // The page is silent, and no packet comes until the next AudioStarted.
    virtual void AudioStopped() = 0;
};

// Hears the page's inspector: see cWebDisplayBrowser::CallInspector. Called on the display thread.
class PENNYWORT_API cBrowserInspectorHandler {
public:
    cBrowserInspectorHandler() = default;
    virtual ~cBrowserInspectorHandler();

    // An event of a domain that was enabled: its name, such as "Runtime.exceptionThrown", and its
    // parameters as JSON.
    virtual void InspectorEvent(const zString& method, const zString& parameters);
};

// What has become of a display's frames so far. See cWebDisplayBrowser::GetFrameCounts.
struct cWebDisplayFrameCounts {
    std::uint64_t painted = 0;       // frames of the page that the runtime painted
    std::uint64_t ticks = 0;         // NextFrame calls that were passed on
    std::uint64_t ticks_missed = 0;  // of those, the ones that the page could not follow, as it
                                     // reports itself every ten frames
};

// What becomes of the main frame's page.
enum class cWebDisplayPagePhase {
    None,     // nothing was asked for yet
    Asked,    // given to the browser, which has not begun to show it
    Loading,  // the browser shows what it has of it
    Failed,   // it could not be loaded
    Lost,     // its process has ended; known only where a setting asks for it
    Loaded,
    Closed  // there is no browser any more: the display was closed, or the page has closed itself
};

// What became of one frame of a page by its own clock. See cWebDisplayBrowser::AdvancePage.
enum class cWebDisplayPageFrame {
    Painted,
    Unchanged,  // the page looks as it did before
    Failed
};

// See cWebDisplayBrowser::GetPageStatus.
struct cWebDisplayPageStatus {
    cWebDisplayPagePhase phase = cWebDisplayPagePhase::None;
    zString url;                // the page that the main frame shows, or that failed in its place
    zString asked;              // what was given to the browser and has not begun; empty if nothing
    zString error;              // why the last page that failed did; empty if none has
    std::uint32_t waiting = 0;  // URLs in the queue, not given to the browser yet
    zString frameFault;         // why the last frame failed that AdvancePage asked for; or empty
    std::uint64_t droppedCalls = 0;  // of hostApp.execute: see "web_max_waiting_calls"
    bool isWidgetOpening = false;    // it has not painted yet: see "web_merge_widgets"
};

// A web page and its queue of URLs, whatever engine shows it. Shared by reference count: the maker
// owns the first reference, and the last Release closes and destroys the display.
//
// Settings, read from a zRecord by the constructor:
//   "web_width", "web_height"  size in pixels; a value below 2 becomes 1
//   "web_url"                  first URL of the queue; none if empty
//   "web_transparent"          transparent page background (default: opaque)
//   "web_background"           what is behind an opaque page that has no background of its own, as
//                              0xRRGGBB (default, 0: black)
//   "web_scale"                pixels of the picture to one of the page each way, as on a screen of
//                              high resolution: frames are that much larger than web_width and
//                              web_height, which stay the page's (default, 0: 1)
//   "web_inspector"            the host may call the page's inspector (default: no)
//   "web_override_css"         style sheet text put into each loaded page
//   "web_refuse_downloads"     a page saves no files (default: the runtime's own way, which is to
//                              save them in the user's folder without asking)
//   "web_refuse_printing"      window.print does nothing (default: the runtime's own way, which is
//                              a window on the host's screen). Wants CEFChildProcess of ours as
//                              the helper
//   "web_max_popups"           windows that the page may have open by script (default, 0: no bound)
//   "web_merge_widgets"        select lists and pickers of dates and colours that stand open are
//                              part of the page's picture (default: each is painted by itself,
//                              with isPopup, and nothing says where it stands)
//   "web_host_clock"           the page paints on NextFrame only (default: at the frame rate)
//   "web_page_clock"           the page lives by a time of its own, which stands at its beginning
//                              until AdvancePage moves it: its scripts, timers, animations and
//                              films see no other. Wants EnablePageClock. A page whose display
//                              has a page callback receiver gets no icon (favicon.ico)
//   "web_page_day"             what the page's clocks say at that beginning, in seconds since 1970
//                              (default, 0: now)
//   "web_page_start"           when such a page counts as loaded, and its time may begin: "load"
//                              (default) when all that it names is there, "dom" when its text is,
//                              or a JavaScript expression, when that is true. With the last two
//                              a fetch holds the page's time for half a second and not for 30
//   "web_sound"                the page's sound goes to the audio receiver, as 48 kHz stereo, and
//                              not to the machine's own output (default: to that output)
//   "web_muted"                the page is silent: neither that output nor a receiver gets anything
//   "web_report_lost_page"     a page whose process has ended is told to PageLoadFailed, and the
//                              queue goes on with its next URL (default: nothing happens)
//   "web_tell_every_load"      what the browser shows in the place of a page that failed is not
//                              told to PageLoaded; a URL that the browser ignores, or that comes
//                              to no page (a download, status 204), is told to
//                              PageLoadFailed; and neither that, nor an empty URL, nor a first one
//                              that comes to nothing holds up the queue (default: the failed page
//                              is told as failed and then as loaded; nothing is told of an ignored
//                              URL, and the queue waits for the next LoadUrl)
//   "web_fail_on_error_status" a page that its server sends with status 400 or above is told to
//                              PageLoadFailed as one that failed, before anything of it is shown
//                              (default: it is a page like any other)
//   "web_keep_last_picture"    when a page follows another, fails to load, its process ends, or
//                              the display is opened again after its end, the renderer gets no
//                              frame until the next page has something to show (default: it gets
//                              what the browser shows then, an empty page or one of the browser's
//                              own). Where a page fails and there was no picture yet it gets one of
//                              the background
//   "web_max_waiting_calls"    calls of hostApp.execute that may wait for the host; further ones
//                              are dropped and counted, also beyond 16 MiB (default, 0: no bound,
//                              and a page that calls in a loop fills the host's memory)
class PENNYWORT_API cWebDisplayBrowser : public zRefCount, public cBrowserVideoRendererInterface {
public:
    // `frameRate` in frames a second; the engine takes the whole part, and 30 for one below 1.
    cWebDisplayBrowser(const zRecord& settings, double frameRate);
    cWebDisplayBrowser(const cWebDisplayBrowser&) = delete;
    cWebDisplayBrowser& operator=(const cWebDisplayBrowser&) = delete;

    // Whether both records ask for the same size, as it stands in them: 0 and 1 differ.
    static bool AreWebDisplaySizeSettingsEqual(const zRecord& a, const zRecord& b);
    // Whether both records ask for the same URL, style sheet and transparency, whatever the size.
    static bool IsWebDisplaySettingsEqual(const zRecord& a, const zRecord& b);

    // Starts showing the first URL of the queue. Does not wait for it. False when the engine
    // cannot.
    virtual bool Open() = 0;
    // Ends the page. Waits for the engine, at most 10 s. Harmless in every state.
    virtual void Close() = 0;
    // Asks for a frame even if nothing has changed.
    virtual void Repaint() = 0;
    virtual void SetSize(long width, long height) = 0;
    // Loads the next URL of the queue unless a page is being loaded.
    virtual void LoadNextUrl() = 0;
    virtual bool IsLoading() const = 0;
    // Inert: -1, and the function is dropped without being called.
    virtual long ExecuteJavascript(unsigned long, unsigned long, std::function<void(std::string)>);
    // Inert: -1.
    virtual long ExecuteJavascript(unsigned long, unsigned long, long, unsigned long);
    // Runs `script` in the page. With `onResult` the script is the body of a function, and what it
    // returns arrives as text, once, on the display thread. A result that has not arrived after
    // `timeoutMs` (0: never) is forgotten when the next script is run; its function is then dropped
    // without being called. 0 when sent, -1 when there is no page.
    virtual long ExecuteJavascript(const zString& script, unsigned long timeoutMs,
                                   std::function<void(std::string)> onResult) = 0;
    // Same, the result being posted to the observers of `observerId` (zObserverHandler) as a record
    // with the integer 'what' and the text "script_result". With `observerId` 0 no result is
    // awaited.
    virtual long ExecuteJavascript(const zString& script, unsigned long what, long observerId,
                                   unsigned long timeoutMs);
    // Inert: -1, and the function is dropped without being called.
    virtual long CacheScriptToBrowser(const zString& script, unsigned long,
                                      std::function<void(std::string)>);
    // Deletes the cookies that apply to `url`; an empty one stands for every site, null for none.
    // Does not wait for it.
    virtual void DeleteCookies(const char* url) = 0;
    // A hidden display paints nothing.
    virtual void SetVisibility(bool visible) = 0;

    // One tick of a display that was opened with "web_host_clock": the page's animations advance
    // and, if anything changed, one picture goes to the renderer. Does not wait for it. False when
    // the display has no page yet or does not run on its host's clock.
    virtual bool NextFrame();

    // One frame of a display that was opened with "web_page_clock": its page is moved to
    // `microseconds` after its beginning, however long that takes, and if anything changed one
    // picture goes to the renderer. Does not wait for it: `onFrame` is called once, on the display
    // thread, with what became of the frame. Painted comes after the picture was delivered, and
    // Unchanged when it is certain that no picture comes: when the next frame is begun, or in a
    // page with a film by itself.
    // The moments of one page must rise, and the first may be 0; up to eight may wait for the one
    // before them. One that does not rise, one too many, one before PageLoaded and those that wait
    // when the page fails are told Failed; why stands in GetPageStatus. False, with `onFrame`
    // dropped, when the display has no browser yet or does not run by its page's clock.
    virtual bool AdvancePage(std::int64_t microseconds,
                             std::function<void(cWebDisplayPageFrame)> onFrame);

    // Of the same display: asks its page for the value of a JavaScript expression between two
    // frames, when none of its time passes and scripts that are run the usual way are not heard.
    // Asked before the first frame, the page stands still from then on. `onValue` is called once,
    // on the display thread: a string as it is, another value as JSON; empty where it has none (it
    // throws, or is no JavaScript) and where the page has gone. False, with `onValue` dropped, as
    // with AdvancePage.
    virtual bool AskPage(const zString& expression,
                         std::function<void(const zString& value)> onValue);

    // Of a display with "web_inspector": calls a method of the inspector's protocol (Chrome
    // DevTools Protocol) for the page, such as "Emulation.setTimezoneOverride". `parameters` is a
    // JSON object, or empty. Calls before Open wait for the browser, which then begins with an
    // empty page and gets its first URL when they are answered. `onResult`, which may be empty, is
    // called once, on the display thread: with the result as JSON, or with nothing where the page
    // refuses or the browser goes; a call that no browser has come for is dropped with the display.
    // A display that lives by its page's clock uses the domains Emulation (virtual time), Fetch (of
    // documents, which it lets go on), Page, Performance, Runtime and Target itself. False, with
    // `onResult` dropped, without the setting, for an empty method and for parameters that are no
    // object.
    virtual bool CallInspector(const zString& method, const zString& parameters,
                               std::function<void(const zString& result)> onResult);

    // Receivers; null removes. See the head of this file for when the old one may be destroyed.
    void SetVideoRenderer(cBrowserVideoRendererInterface* renderer);
    void SetPageCallbackReceiver(cBrowserPageCallbackHandler* receiver);
    void SetJavascriptCallbackReceiver(cBrowserJavascriptCallbackHandler* receiver);
    // Of a display with "web_sound"; of another one it is never called.
    void SetAudioReceiver(cBrowserAudioReceiverInterface* receiver);
    void SetInspectorReceiver(cBrowserInspectorHandler* receiver);

    // Puts a URL at the end of the queue; null is ignored.
    void LoadUrl(const char* url);
    // The page that finished loading last; empty before the first.
    void GetUrlForLastPageLoaded(zString& out) const;
    void GetFrameCounts(cWebDisplayFrameCounts& out) const;
    void GetPageStatus(cWebDisplayPageStatus& out) const;

    void GetSize(long& width, long& height) const override;
    // Hands a frame to the video renderer, or drops it if there is none.
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override;

    // Availability of the Flash plug-in, for the whole process. A host that asked to be informed
    // gets one notification (a record with the integer 'what', to the observers of `observerId`)
    // and one call of the function with false, once detection has run and found none.
    static bool HaveRunFlashDetection();
    static void SetHaveRunFlashDetection(bool run);
    static void Flash_SetAvailability(bool available);
    static void Flash_ConfigureMissingCallback(long observerId, long what);
    static void Flash_ConfigureMissingFunction(std::function<void(bool)> fn);
    static void Flash_InformUserIfMissing();

protected:
    ~cWebDisplayBrowser() override;

    std::string PeekNextURL();
    std::string PopNextURL();
    void put_back_url(const std::string& url);
    bool has_next_url() const;
    bool handle_page_request(const char* url);
    void handle_page_loaded(const char* url);
    void handle_page_load_failed(const char* url, const char* error);
    void handle_inspector_event(const zString& method, const zString& parameters);
    void handle_javascript_callback(const zString& name, const zString& argument, zString& result);
    // `timeoutMs` 0: the observer never expires.
    void add_observer(const char* key, std::function<void(std::string)> callback,
                      unsigned long timeoutMs);
    void received_javascript_exec_result(const zString& key, const zString& result);
    const char* get_css_override() const;

    struct observer_entry {
        std::function<void(std::string)> callback;
        std::int64_t expiry = 0;  // microseconds of zTime::MicroNow; 0: never
    };

    cBrowserVideoRendererInterface* m_video_renderer = nullptr;
    cBrowserPageCallbackHandler* m_page_receiver = nullptr;
    cBrowserJavascriptCallbackHandler* m_javascript_receiver = nullptr;
    std::unique_ptr<zCritical> m_video_renderer_lock;
    std::unique_ptr<zCritical> m_page_receiver_lock;
    std::unique_ptr<zCritical> m_javascript_receiver_lock;
    zPoint m_size;
    std::deque<std::string> m_url_queue;
    std::string m_css_override;
    std::string m_last_loaded_url;
    bool m_windowless = true;
    bool m_transparent = false;
    bool m_load_pending = false;
    double m_frame_rate = 0;
    std::unique_ptr<zCritical> m_observer_lock;
    std::map<std::string, observer_entry> m_observers;

    std::unique_ptr<pennywort::webdisplay::display_state> m_state;

private:
    friend class pennywort::webdisplay::display_engine;
    friend class pennywort::webdisplay::webdisplay_browser_client;
};

// A display whose page is shown by the browser runtime.
class PENNYWORT_API cWebDisplayCEFBrowser : public cWebDisplayBrowser {
public:
    cWebDisplayCEFBrowser(const zRecord& settings, double frameRate);

    bool Open() override;
    void Close() override;
    void Repaint() override;
    void SetSize(long width, long height) override;
    void LoadNextUrl() override;
    bool IsLoading() const override;
    using cWebDisplayBrowser::ExecuteJavascript;
    long ExecuteJavascript(const zString& script, unsigned long timeoutMs,
                           std::function<void(std::string)> onResult) override;
    void DeleteCookies(const char* url) override;
    void SetVisibility(bool visible) override;
    bool NextFrame() override;
    bool AdvancePage(std::int64_t microseconds,
                     std::function<void(cWebDisplayPageFrame)> onFrame) override;
    bool AskPage(const zString& expression,
                 std::function<void(const zString& value)> onValue) override;
    bool CallInspector(const zString& method, const zString& parameters,
                       std::function<void(const zString& result)> onResult) override;

    // Shows the page in a child window of `parent` instead of painting off screen; null goes back.
    // Call before Open.
    void SetParentWindow(HWND parent);
    // For the window procedure of the parent window. True: handled, with `result`.
    bool HandleWindowMessage(HWND window, UINT message, WPARAM wparam, LPARAM lparam,
                             LRESULT& result);
    // Whether keystrokes to `window` belong to a text field of a page that it shows.
    static bool IsCurrentFocusedElementEditableInHWND(HWND window);

protected:
    ~cWebDisplayCEFBrowser() override;

private:
    friend class pennywort::webdisplay::display_engine;
    friend class pennywort::webdisplay::webdisplay_browser_client;

    void get_cef_state(pennywort::webdisplay::webdisplay_cef_state& out) const;
    void browser_destroyed();
    void create_cef_browser(zSignal* done);
    void notify_move_or_resize();

    pennywort::webdisplay::webdisplay_cef_state* m_cef_state = nullptr;
    std::unique_ptr<zCritical> m_state_lock;
    std::shared_ptr<zSignal> m_close_signal;  // of the browser that was asked for last
    HWND m_parent_window = nullptr;

    std::unique_ptr<pennywort::webdisplay::display_engine> m_engine;
};

// How the runtime's work is driven.
enum class cWebDisplayPacing {
    Timer,      // every 15 ms, whatever there is to do
    OnRequest,  // when the runtime says that work is due: more frames a second, evener intervals
};

// Brings the browser runtime up once per process, drives it, and makes displays.
// Startup, Shutdown and the Set and Add operations belong to one thread, the display thread.
class PENNYWORT_API cWebDisplayCEFBrowserManager {
public:
    cWebDisplayCEFBrowserManager(const cWebDisplayCEFBrowserManager&) = delete;
    cWebDisplayCEFBrowserManager& operator=(const cWebDisplayCEFBrowserManager&) = delete;

    // Starts the runtime. False when it cannot be had: every other operation then stays harmless,
    // and GetStartupFailure says why. True at once when the manager exists, whatever became of its
    // start. With a non-empty `arg` Shutdown leaves the runtime running. A runtime that has been
    // shut down cannot be started again in the same process.
    static bool Startup(const char* arg);
    // Closes what is still open, waiting at most 10 s, and ends the runtime.
    static void Shutdown();
    // Valid between Startup and Shutdown only.
    static cWebDisplayCEFBrowserManager& Default();
    static bool IsInitialized();
    // A display, owned by the caller (Release); null when memory is out. It can be made before
    // Startup.
    static cWebDisplayBrowser* CreateBrowser(const zRecord& settings, double frameRate);
    // While `fn` returns false the runtime's work is held off. Called on the display thread before
    // each piece of work. Lost at Shutdown; dropped when there is no manager. Empty: no gate.
    static void SetCanRunCefMessageLoopFn(std::function<bool()> fn);

    // Before Startup only; later calls change nothing until the next process.
    static void SetPacing(cWebDisplayPacing pacing);
    // Adds a command line switch (without dashes) for the runtime's processes; an empty or null
    // value makes a plain switch. Before Startup only.
    static void AddCommandLineSwitch(const char* name, const char* value);
    // Lets each picture of displays with "web_host_clock" show the step of its own tick; else the
    // runtime may draw before the page, and every picture is a tick late, differently from one run
    // to the next. Before Startup only. All displays of the process then draw a frame only when all
    // parts of it are there, so that a page whose scripts take long shows no animation meanwhile.
    static void EnableExactTicks();
    // Lets displays have "web_page_clock". Before Startup only. `randomSeed` is where Math.random
    // of every page begins, so that two runs of a page are equal. All displays of the process then
    // draw a frame only when all parts of it are there, and keep the frames of other sites in the
    // process of their page.
    static void EnablePageClock(std::uint32_t randomSeed);
    // Why the last Startup was false, in one sentence that names the remedy; empty if it was not.
    static void GetStartupFailure(zString& out);

protected:
    cWebDisplayCEFBrowserManager();
    ~cWebDisplayCEFBrowserManager();

    bool Initialized() const;
    bool Start(const char* arg);
    void Stop();

    bool m_initialized = false;
    bool m_start_flag = false;
    std::unique_ptr<pennywort::webdisplay::message_pump> m_timer_loop;
};
