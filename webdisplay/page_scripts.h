// page_scripts.h - the scripts that the bridge runs in pages. Host pages rely on every byte of
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort::webdisplay::page_scripts {

inline constexpr std::string_view k_flash_probe =
    "var hasFlash = '0';try {\tvar fo = new ActiveXObject('ShockwaveFlash.ShockwaveFlash');"
    "\tif (fo) hasFlash = '1';}catch (e) {\tif (navigator.mimeTypes && "
    "navigator.mimeTypes['application/x-shockwave-flash'] != undefined && "
    "navigator.mimeTypes['application/x-shockwave-flash'].enabledPlugin)\t\thasFlash = '1';}"
    "window.hostApp.execute('HasFlash', hasFlash); ";

inline constexpr std::string_view k_focus_listener =
    "document.addEventListener('focus', function(e) {var tag = e.target.tagName.toUpperCase();"
    "var editableInput = false;if (tag === 'INPUT') {  var typ = e.target.type.toUpperCase();"
    "  editableInput = (typ === 'TEXT' || typ === 'PASSWORD' || typ === 'FILE' || "
    "typ === 'SEARCH' || typ === 'EMAIL' || typ === 'NUMBER' || typ === 'DATE');}"
    "var editable = '0';if ((editableInput || tag === 'TEXTAREA' || e.target.isContentEditable) "
    "&& (!e.target.readOnly && !e.target.disabled))\t\teditable = '1';"
    "window.hostApp.execute('Focus', editable);}, true);";

inline constexpr std::string_view k_blur_listener =
    "document.addEventListener('blur', function() { window.hostApp.execute('Focus', '0'); }, "
    "true);";

inline constexpr std::string_view k_error_hook =
    "window.onerror = function(msg,url, line) { window.hostApp.execute(msg, url); };";

inline constexpr std::string_view k_next_url = "window.hostApp.execute('LoadNextUrl', '0');";

// Only where the page runs on its host's clock: counts the animation frames that the page is given,
// and reports every tenth.
inline constexpr std::string_view k_tick_counter =
    "(function() {const next = window.requestAnimationFrame.bind(window);"
    "const send = window.hostApp.execute;let frames = 0;"
    "(function count() {if (++frames % 10 === 0) send('thinternal-page-frames', frames);"
    "next(count);})();})();";
inline constexpr std::string_view k_tick_report = "thinternal-page-frames";

// Only where the last picture is kept until there is a new one: says that the page has painted. The
// runtime puts a page's first frame off by up to half a second, so the page waits for that first.
inline constexpr std::string_view k_paint_watch =
    "(function() {const next = window.requestAnimationFrame.bind(window);"
    "const send = window.hostApp.execute;let frames = 0;"
    "setTimeout(function count() {if (++frames > 4) send('thinternal-page-painted', '');"
    "else next(count);}, 700);})();";
inline constexpr std::string_view k_paint_report = "thinternal-page-painted";

// Only where printing is refused: the browser would open a window of its own for it, or say in one
// that it cannot. Run before the page's own scripts.
inline constexpr std::string_view k_no_printing =
    "(function() {window.print = function print() {};"
    "const run = Document.prototype.execCommand;"
    "Document.prototype.execCommand = function execCommand(command) {"
    "if (String(command).toLowerCase() === 'print') return false;"
    "return run.apply(this, arguments);};})()";

// Only for a page by its own clock. Films do not play by that clock, nor does anything sound by it:
// films are kept paused and put to each frame's moment, contexts of sound are replaced by such as
// render off line, and files of sound are mixed by script. The driver stands in each document
// before its own scripts, and calls the binding when there is the first thing to drive; with
// `k_film_stands` when a film is in the document at all, and `k_film_moves` when pictures of films
// begin to move. No script of the page reaches into a frame of another site: so the driver there is
// one of its own, which calls with `k_film_apart` before it is asked for anything.
inline constexpr const char* k_film_binding = "thinternalFilms";
inline constexpr const char* k_film_stands = "stands";
inline constexpr const char* k_film_moves = "film";
inline constexpr const char* k_film_apart = "apart";
extern const char* const k_sound_common;
extern const char* const k_sound_driver;
extern const char* const k_film_driver;
std::string page_driver_script();
// Run before each frame and waited for. Its value is what is heard of the page's own making (see
// page_samples), and in a second line what is to be heard of files, as an order for the world
// below; nothing where neither is, or nobody listens.
std::string films_at(std::int64_t microseconds, bool is_heard);
// Waits, after that, for a frame in which the films' pictures are shown. False where none moves any
// more.
inline constexpr const char* k_shown = "window['thinternal shown']()";
// The address of a film that was put to a moment and has not come there; empty without one.
inline constexpr const char* k_stalled = "window['thinternal stalled']()";

// Files are heard in a world beside the page's own, with objects that no script of the page can
// reach. It asks for the bytes of a file of this machine by its own binding.
inline constexpr const char* k_sound_world_name = "thinternal sound";
inline constexpr const char* k_file_binding = "thinternalFile";
extern const char* const k_sound_world;
std::string sound_world_script();
// Its value is what is heard of files. A hurried one does not wait for what has not come.
std::string heard_of(const std::string& order_as_json, bool is_hurried);
// Hands it the next bytes of such a file of `total`; none at all where it cannot be read.
std::string file_part(const std::string& url_as_json, std::size_t total, std::string_view bytes);
// Waits for the page's turn of requestAnimationFrame, and has the time for its value that the page
// is told in it. By the browser's own, which is kept in each document before the page's scripts can
// put theirs in its place: one that goes by a timer would never come while the page's time stands.
extern const char* const k_turn_keeper;
inline constexpr const char* k_turn = "window['thinternal turn']()";
// For one frame the page's scripts have no turns of requestAnimationFrame; then again.
inline constexpr const char* k_rest = "window['thinternal rest'](true)";
inline constexpr const char* k_no_rest = "window['thinternal rest'](false)";

// Whether the page has none until a script that it changes its view with has ended.
inline constexpr const char* k_held = "window['thinternal held']()";

// The address of a style sheet that the page waits for before it draws anything; empty without one.
extern const char* const k_blocked_by;

// What the page has asked for so far and shows nothing without: fonts, images, films.
inline constexpr const char* k_settled = "window['thinternal settled'](true)";
// The same for a page whose start waits for nothing that is on its way.
inline constexpr const char* k_settled_so_far = "window['thinternal settled'](false)";

static_assert(k_flash_probe.size() == 349 && k_focus_listener.size() == 535 &&
              k_blur_listener.size() == 94 && k_error_hook.size() == 79 && k_next_url.size() == 43);

// Puts a style sheet into the page, as a data URL so that its text needs no quoting.
std::string style_sheet(std::string_view css);

// The answer to a page's command. Neither text is escaped, as pages expect.
std::string host_callback(std::string_view command, std::string_view result);

// Runs `script` as the body of a function and sends what it returns back under `id`.
std::string with_result(std::string_view script, std::string_view id);

// The command under which such a result comes back, before the ":" and the id.
inline constexpr std::string_view k_result_command = "thinternal-javascript-wait-result";

}  // namespace pennywort::webdisplay::page_scripts
