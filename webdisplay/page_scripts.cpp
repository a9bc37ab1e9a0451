// page_scripts.cpp - see the header for the contract.
#include "webdisplay/page_scripts.h"

#include "loam/base64.h"

namespace pennywort::webdisplay::page_scripts {

const char* const k_film_driver = R"js((() => {
  const media = HTMLMediaElement.prototype;
  const play = media.play, pause = media.pause;
  const clock = Object.getOwnPropertyDescriptor(media, 'currentTime');
  const is_paused = Object.getOwnPropertyDescriptor(media, 'paused').get;
  const has_ended = Object.getOwnPropertyDescriptor(media, 'ended').get;
  const tell = self.thinternalFilms;
  const films = new Map();  // each film that runs: the page's time when it began, and its own then
  let is_told = false;
  const fire = (film, name) => film.dispatchEvent(new Event(name));
  function run(film) {
    if (films.has(film)) return;
    if (!is_told && tell) { is_told = true; tell(''); }
    const ended = has_ended.call(film);
    films.set(film, {since: performance.now(), from: ended ? 0 : clock.get.call(film)});
    film.autoplay = false;
    pause.call(film);
    fire(film, 'play');
    fire(film, 'playing');
  }
  function stand(film) {
    if (!films.delete(film)) return pause.call(film);
    fire(film, 'pause');
  }
  media.play = function () {
    if (!(this instanceof HTMLVideoElement)) return play.call(this);
    run(this);
    return Promise.resolve();
  };
  media.pause = function () { stand(this); };
  Object.defineProperty(media, 'paused', {configurable: true, get() {
    return !films.has(this) && is_paused.call(this);
  }});
  Object.defineProperty(media, 'currentTime', {configurable: true, get() {
    return clock.get.call(this);
  }, set(time) {
    clock.set.call(this, time);
    const film = films.get(this);
    if (film) { film.since = performance.now(); film.from = Number(time); film.at = undefined; }
  }});
  const look = root => {
    if (root.nodeType !== 1 && root.nodeType !== 9) return;
    if (root instanceof HTMLVideoElement && root.autoplay) run(root);
    for (const film of root.querySelectorAll('video[autoplay]')) run(film);
  };
  new MutationObserver(all => all.forEach(one => one.addedNodes.forEach(look)))
    .observe(document, {childList: true, subtree: true});
  function place(film, run) {
    if (!film.isConnected || film.readyState < 1) return null;
    let time = run.from + (performance.now() - run.since) / 1000 * film.playbackRate;
    if (time >= film.duration && film.loop) time %= film.duration;
    if (time >= film.duration) {
      time = film.duration;
      films.delete(film);
      queueMicrotask(() => { fire(film, 'pause'); fire(film, 'ended'); });
    }
    time = Math.round(time * 1e6) / 1e6;
    if (run.at === time) return null;
    run.at = time;
    return new Promise(done => {
      film.addEventListener('seeked', done, {once: true});
      film.addEventListener('error', done, {once: true});
      // Past the beginning of the film's frame, which is no whole microsecond in most films.
      clock.set.call(film, time + 0.0005);
    });
  }
  Object.defineProperty(self, 'thinternal films', {value: () =>
    Promise.all([...films].map(([film, run]) => place(film, run)))});
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
