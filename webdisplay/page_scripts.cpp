// page_scripts.cpp - see the header for the contract.
#include "webdisplay/page_scripts.h"

#include "loam/base64.h"

namespace pennywort::webdisplay::page_scripts {

const char* const k_film_driver = R"js(
  const media = HTMLMediaElement.prototype;
  const play = media.play, pause = media.pause;
  const property = name => Object.getOwnPropertyDescriptor(media, name);
  const clock = property('currentTime'), speed = property('playbackRate');
  const auto = property('autoplay');
  const is_paused = property('paused').get, has_ended = property('ended').get;
  const films = new Map();  // each film and sound that runs: since when, and from where in it
  const stood = new WeakMap();  // where each one was stopped
  const over = new WeakSet();   // sounds at their end, which the browser knows nothing of
  const is_film = one => one instanceof HTMLVideoElement;
  const fire = (film, name) => film.dispatchEvent(new Event(name));
  const seconds_of = (film, run) => {
    const time = run.from + (hub.now() - run.begun) / rate * run.speed;
    if (!(time >= film.duration)) return time;
    return film.loop ? time % film.duration : film.duration;
  };
  // The browser's own clock of a film is put a little past the time that is meant.
  function time_of(film) {
    const run = films.get(film), own = clock.get.call(film), left = stood.get(film);
    if (run) return seconds_of(film, run);
    return left !== undefined && (!is_film(film) || Math.abs(own - left) < 0.001) ? left : own;
  }
  function begin(film, from) {
    const begun = hub.now();
    films.set(film, {begun, from, speed: film.playbackRate, heard: Math.round(begun)});
    over.delete(film);
    stood.delete(film);
  }
  function end(film) {
    const run = films.get(film);
    if (!run) return;
    stood.set(film, seconds_of(film, run));
    films.delete(film);
    hub.end(film, run);
  }
  function run(film) {
    // A stream has no time of its own to be put to.
    if (film.srcObject && !is_film(film)) {
      hub.say('a stream (srcObject) is not in the film');
      return play.call(film);
    }
    const running = films.get(film);
    if (running && !(running.is_ready && film.readyState < 1)) return;
    hub.rouse();
    if (hub.is_apart && !film.muted) hub.say();
    const is_over = over.has(film) || has_ended.call(film);
    const is_new = Boolean(running) || film.readyState < 1;
    end(film);
    begin(film, is_over || is_new ? 0 : time_of(film));
    film.autoplay = false;
    if (film.preload === 'none') film.preload = 'auto';
    pause.call(film);
    film.addEventListener('emptied', () => {
      if (films.get(film)?.is_ready) end(film);
    }, {once: true});
    fire(film, 'play');
    fire(film, 'playing');
  }
  function stand(film) {
    if (!films.has(film)) return pause.call(film);
    end(film);
    fire(film, 'pause');
  }
  media.play = function () {
    if (!(this instanceof HTMLMediaElement)) return play.call(this);
    return run(this) || Promise.resolve();
  };
  media.pause = function () { stand(this); };
  Object.defineProperty(media, 'paused', {configurable: true, get() {
    return !films.has(this) && is_paused.call(this);
  }});
  Object.defineProperty(media, 'ended', {configurable: true, get() {
    return over.has(this) || has_ended.call(this);
  }});
  Object.defineProperty(media, 'currentTime', {configurable: true, get() {
    return is_film(this) ? clock.get.call(this) : time_of(this);
  }, set(time) {
    clock.set.call(this, time);
    const was_running = films.has(this);
    end(this);
    over.delete(this);
    stood.delete(this);
    if (was_running) begin(this, Number(time));
  }});
  Object.defineProperty(media, 'playbackRate', {configurable: true, get() {
    return speed.get.call(this);
  }, set(value) {
    const from = films.has(this) ? time_of(this) : undefined;
    end(this);
    speed.set.call(this, value);
    if (from !== undefined) begin(this, from);
  }});
  Object.defineProperty(media, 'autoplay', {configurable: true, get() {
    return auto.get.call(this);
  }, set(value) {
    auto.set.call(this, value);
    if (value) run(this);
  }});
  const look = root => {
    if (root.nodeType !== 1 && root.nodeType !== 9) return;
    if (root instanceof HTMLMediaElement && root.autoplay) run(root);
    for (const film of root.querySelectorAll('video[autoplay],audio[autoplay]')) run(film);
  };
  new MutationObserver(all => all.forEach(one => one.addedNodes.forEach(look)))
    .observe(document, {childList: true, subtree: true});
  function place(film, run) {
    if (film.readyState < 1 || (is_film(film) && !film.isConnected)) return null;
    run.is_ready = true;
    const time = Math.round(seconds_of(film, run) * 1e6) / 1e6;
    if (time >= film.duration) {
      end(film);
      if (!is_film(film)) over.add(film);
      queueMicrotask(() => { fire(film, 'pause'); fire(film, 'ended'); });
    }
    if (!is_film(film)) {
      if (Math.abs(time - (run.said ?? -1)) >= 0.25) fire(film, 'timeupdate'), run.said = time;
      return null;
    }
    if (run.at === time) return null;
    run.at = time;
    return new Promise(done => {
      film.addEventListener('seeked', done, {once: true});
      film.addEventListener('error', done, {once: true});
      // Past the beginning of the film's frame, which is no whole microsecond in most films.
      clock.set.call(film, time + 0.0005);
    });
  }
  hub.join({self, films, place: () =>
    Promise.all([...films].map(([film, run]) => place(film, run)))});
)js";

// Goes on asking: the browser would take a page that wants no frame off its list, and a frame that
// is begun while it comes back would pass the page by.
const char* const k_turn_keeper = R"js((() => {
  const ask = requestAnimationFrame, call = Reflect.apply, Own = Promise;
  const next = then => call(ask, window, [then]);
  Object.defineProperty(window, 'thinternal turn', {value: () => new Own(done => next(at => {
    next(() => 0);
    done(at);
  }))});
})();)js";

const char* const k_settled = R"js(Promise.all([
  document.fonts.ready,
  ...[...document.images].map(image => image.decode().catch(() => 0)),
  ...[...document.querySelectorAll('video')].map(film =>
    film.readyState >= 3 || film.error || !film.currentSrc ? 0 : new Promise(done => {
      film.addEventListener('canplay', done, {once: true});
      film.addEventListener('error', done, {once: true});
    }))
]).then(() => 0))js";

namespace {

std::string joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (const std::string_view part : parts) text += part;
    return text;
}

std::string base64(std::string_view bytes) {
    const int length = static_cast<int>(bytes.size());
    std::string text(static_cast<std::size_t>(Base64encode_len(length)), '\0');
    const int written = Base64encode(text.data(), bytes.data(), length);
    text.resize(written > 0 ? static_cast<std::size_t>(written - 1) : 0);  // without its NUL
    return text;
}

}  // namespace

std::string page_driver_script() {
    return joined({"(() => {", k_sound_common, k_sound_driver, k_film_driver, "})();"});
}

std::string films_at(std::int64_t microseconds, bool is_heard) {
    return joined({"window['thinternal films'](", std::to_string(microseconds), ",",
                   is_heard ? "true" : "false", ")"});
}

std::string sound_world_script() {
    return joined({"(() => { if (globalThis.thinternalSound) return;", k_sound_common,
                   k_sound_world, "})();"});
}

std::string heard_of(const std::string& order_as_json, bool is_hurried) {
    return joined(
        {"thinternalSound.hear(", order_as_json, ",", is_hurried ? "true" : "false", ")"});
}

std::string file_part(const std::string& url_as_json, std::size_t total, std::string_view bytes) {
    return joined({"thinternalSound.take_file(", url_as_json, ",", std::to_string(total), ",'",
                   base64(bytes), "')"});
}

std::string style_sheet(std::string_view css) {
    return joined(
        {"var link = document.createElement('link');link.setAttribute('rel', 'stylesheet');"
         "link.setAttribute('type', 'text/css');link.setAttribute('href', '",
         "data:text/css;charset=utf-8;base64,", base64(css),
         "');document.getElementsByTagName('head')[0].appendChild(link);"});
}

std::string host_callback(std::string_view command, std::string_view result) {
    return joined({"if (typeof(hostAppCallback) == 'function') {hostAppCallback('", command, "','",
                   result, "');}"});
}

std::string with_result(std::string_view script, std::string_view id) {
    return joined({"function tarntemp(){", script, "};window.hostApp.execute('", k_result_command,
                   ":", id, "',tarntemp())"});
}

}  // namespace pennywort::webdisplay::page_scripts
