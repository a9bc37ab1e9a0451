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
  // What a film has for its source that comes as it comes, and has no time to be put to.
  const source = property('srcObject');
  const is_stream = what => Boolean(self.MediaStream) && what instanceof MediaStream;
  const coming = new WeakMap();  // films that get theirs when their document has loaded
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
    const begun = hub.now(), guess = clock.get.call(film);
    films.set(film, {begun, from, guess, is_early: film.readyState < 1, come,
                     speed: film.playbackRate, heard: Math.round(begun)});
    hub.join(home);
    over.delete(film);
    stood.delete(film);
    if (is_film(film)) hub.move();
  }
  // Where a film begins is known when it has come: its address may say so, and the page may have
  // set it before there was anything to put there.
  function come(film) {
    if (this.is_ready || film.readyState < 1) return;
    this.is_ready = true;
    if (this.is_early) this.from += clock.get.call(film) - this.guess;
  }
  function end(film) {
    const run = films.get(film);
    if (!run) return;
    stood.set(film, seconds_of(film, run));
    films.delete(film);
    hub.end(film, run);
  }
  function run(film) {
    const stream = film.srcObject;
    if (stream && !is_film(film)) {
      hub.say('a stream (srcObject) is not in the film');
      return play.call(film);
    }
    if (is_stream(stream)) {
      if (!film.muted && stream.getAudioTracks().length > 0) {
        hub.say('a stream (srcObject) is not in the film');
      }
      const due = coming.get(film)?.due;
      return due ? after(due, () => play.call(film)) : play.call(film);
    }
    const running = films.get(film);
    if (running && !(running.is_ready && film.readyState < 1)) return;
    hub.rouse();
    if (hub.is_apart && !film.muted) hub.say();
    const is_over = over.has(film) || has_ended.call(film);
    const is_new = Boolean(running) || film.readyState < 1;
    end(film);
    const from = is_new ? clock.get.call(film) : time_of(film);
    begin(film, is_over ? 0 : from);
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
    // The browser refuses some, and then all is as it was.
    speed.set.call(this, value);
    if (!films.has(this)) return;
    const from = time_of(this);
    end(this);
    begin(this, from);
  }});
  Object.defineProperty(media, 'autoplay', {configurable: true, get() {
    return auto.get.call(this);
  }, set(value) {
    auto.set.call(this, value);
    if (value) run(this);
  }});
  // A document has loaded when its films have a picture, and one of a stream may have its first by
  // what the document draws in a frame, which comes when it has loaded.
  function put_off(film, stream) {
    const one = {stream};
    one.due = new Promise(go_on => {
      film.ownerDocument.defaultView.addEventListener('load', () => {
        if (coming.get(film) !== one) return;
        coming.delete(film);
        source.set.call(film, stream);
        go_on();
      }, {once: true});
    });
    coming.set(film, one);
  }
  Object.defineProperty(media, 'srcObject', {configurable: true, enumerable: true, get() {
    return coming.get(this)?.stream ?? source.get.call(this);
  }, set(stream) {
    const was_running = films.has(this), home = this.ownerDocument;
    const is_early = is_film(this) && is_stream(stream) && home.defaultView &&
      home.readyState !== 'complete';
    coming.delete(this);
    if (is_film(this)) end(this);
    source.set.call(this, is_early ? null : stream);
    if (is_early) put_off(this, stream);
    if (was_running && is_film(this) && stream) start(this);
  }});
  const start = film => {
    const begun = run(film);
    if (begun) after(begun, () => 0, () => 0);
  };
  // What is in the shadow of an element is looked for in there: no question to a document finds it.
  const shadows = new WeakSet(), shadow_of = Object.getOwnPropertyDescriptor(
    Element.prototype, 'shadowRoot').get;
  function enter(shadow) {
    if (!shadow || shadows.has(shadow)) return;
    shadows.add(shadow);
    watch(shadow);
    look(shadow);
  }
  const enter_all = root => {
    for (const one of root.querySelectorAll('*')) enter(call(shadow_of, one, []));
  };
  const attach = Element.prototype.attachShadow;
  Element.prototype.attachShadow = function attachShadow(init) {
    const shadow = call(attach, this, arguments);
    enter(shadow);
    return shadow;
  };
  const begin_by_itself = one => {
    if (one instanceof HTMLMediaElement && one.autoplay) start(one);
  };
  const look = root => {
    if (root.nodeType !== 1 && root.nodeType !== 9 && root.nodeType !== 11) return;
    hub.see(root);
    begin_by_itself(root);
    for (const film of root.querySelectorAll('video[autoplay],audio[autoplay]')) start(film);
    if (root.nodeType === 1) enter(call(shadow_of, root, []));
    enter_all(root);
  };
  // What leaves the document is stopped, unless it has a new place there by now.
  const is_within = (film, root) => {
    for (let node = film; node; node = node.parentNode ?? (node.nodeType === 11 && node.host)) {
      if (node === root) return true;
    }
    return false;
  };
  const leave = root => {
    if (root.nodeType !== 1) return;
    for (const film of films.keys()) {
      if (!film.isConnected && is_within(film, root)) stand(film);
    }
  };
  // The parser gives an element its shadow when that element is there already, and says nothing of
  // it. What it reads next says where it has been.
  function look_back({target, previousSibling}) {
    if (document.readyState !== 'loading') return;
    if (target.nodeType === 1) enter(call(shadow_of, target, []));
    for (let node = previousSibling; node; node = node.lastElementChild) {
      if (node.nodeType === 1) enter(call(shadow_of, node, []));
    }
  }
  const watcher = new MutationObserver(all => all.forEach(one => {
    if (one.type === 'attributes') return begin_by_itself(one.target);
    look_back(one);
    one.addedNodes.forEach(look);
    one.removedNodes.forEach(leave);
  }));
  const watch = root => watcher.observe(
    root, {childList: true, subtree: true, attributeFilter: ['autoplay']});
  watch(document);
  self.addEventListener('DOMContentLoaded', () => enter_all(document),
                        {once: true, capture: true});
  // That the browser has sought does not say that it shows what it has found: that comes with a
  // frame. A film without a picture in the frame before, hidden or without any, has none to wait
  // for until there is one again.
  const ask_picture = HTMLVideoElement.prototype.requestVideoFrameCallback;
  function await_picture(film, run) {
    run.is_blind = Boolean(run.show);
    run.picture = new Promise(done => { run.show = done; });
    if (!run.is_asked) look_at(film, run);
  }
  function look_at(film, run) {
    run.is_asked = true;
    ask_picture.call(film, (_, {mediaTime}) => {
      run.is_asked = false;
      // The picture that a film comes with is another one than that which it was put to.
      const is_it = Math.abs(run.at - mediaTime) < 0.25 || run.seen === mediaTime;
      run.seen = mediaTime;
      if (!is_it) return films.get(film) === run && look_at(film, run);
      run.is_blind = false;
      run.show?.();
      run.show = null;
    });
  }
  // Those that the browser has not found yet. It gives up where the film gets another source.
  const sought = new Set();
  function place(film, run) {
    if (film.readyState < 1) return null;
    run.come(film);
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
    hub.show(run);
    if (run.at === time) return null;
    run.at = time;
    await_picture(film, run);
    return new Promise(done => {
      const leave = () => { sought.delete(leave); done(); };
      sought.add(leave);
      for (const what of ['seeked', 'error', 'emptied']) {
        film.addEventListener(what, leave, {once: true});
      }
      // Past the beginning of the film's frame, which is no whole microsecond in most films.
      clock.set.call(film, time + 0.0005);
    });
  }
  const home = {self, films, place: () =>
    all([...films].map(([film, run]) => place(film, run)))};
  // Behind its document a film that was heard in it is heard up to now, and nobody waits for it.
  // With the page itself all that is driven goes.
  if (self !== top) self.addEventListener('pagehide', event => {
    if (!event.isTrusted || event.persisted) return;
    for (const [film, run] of [...films]) {
      if (run.url) end(film);
      films.delete(film);
      run.show?.();
    }
    for (const leave of [...sought]) leave();
    hub.part(home);
  }, true);
)js";

// Goes on asking: the browser would take a page that wants no frame off its list, and a frame that
// is begun while it comes back would pass the page by.
const char* const k_turn_keeper = R"js((() => {
  const ask = requestAnimationFrame, call = Reflect.apply, Own = Promise;
  const next = then => call(ask, window, [then]);

  // Behind a frame for which the page's thread had nothing new, the browser lets an animated image
  // go ahead of that thread; when it then has something, each waits for the other for ever. So it
  // has something in each frame that nobody sees: a listener, or none, of an event that hardly any
  // page listens for.
  const hears = [addEventListener, removeEventListener], nothing = () => 0;
  let stirs = 0;
  const stir = () => call(hears[stirs ^= 1], window, ['pointerrawupdate', nothing]);
  Object.defineProperty(window, 'thinternal turn', {value: () => new Own(done => next(at => {
    next(stir);
    done(at);
  }))});

  // While the page rests, its turns are kept for the frame after that.
  const drop = cancelAnimationFrame, own = window, asked = {__proto__: null};
  let rests = false, held = [];

  // The page cannot tell a frame of another site to rest. Such a one has one turn for each moment,
  // in the first frame that is drawn for it, and that moment's time.
  const is_apart = (() => {
    try {
      return self !== top && !top['thinternal rest'];
    } catch {
      return true;
    }
  })();
  const clock = performance.now.bind(performance), moment = 0.3;
  let is_marked = false, is_again = false, last = -moment;
  function mark() {
    if (is_marked) return;
    is_marked = true;
    next(at => {
      is_marked = false;
      is_again = at - last < moment;
      if (!is_again) last = at;
    });
  }
  function time_of(at) {
    const now = clock();
    return now > at && now < at + moment ? now : at;
  }
  function wish(one) {
    if (is_apart) mark();
    return one.id = next(at => {
      if (rests) return void(held[held.length] = one);
      if (is_again) return void wish(one);
      delete asked[one.key];
      call(one.turn, undefined, [time_of(at)]);
    });
  }
  own.requestAnimationFrame = function requestAnimationFrame(turn) {
    if (typeof turn !== 'function') return call(ask, own, arguments);
    const one = {turn, key: 0, id: 0};
    asked[one.key = wish(one)] = one;
    return one.key;
  };
  own.cancelAnimationFrame = function cancelAnimationFrame(key) {
    const one = asked[key];
    if (!one) return call(drop, own, arguments);
    delete asked[key];
    one.turn = null;
    call(drop, own, [one.id]);
  };
  function rest(is_to_rest) {
    rests = is_to_rest;
    const all = held;
    if (!rests) {
      held = [];
      for (let i = 0; i < all.length; ++i) if (all[i].turn) wish(all[i]);
    }
    for (let i = 0; i < own.length; ++i) {
      try {
        own[i]['thinternal rest'](is_to_rest);
      } catch {}  // of another site
    }
  }
  Object.defineProperty(own, 'thinternal rest', {value: rest});

  // A script that changes the view by a transition, for as long as it has not ended. What it brings
  // is had once only, and what it throws is told as ever.
  const begin = Document.prototype.startViewTransition;
  let changes = 0;
  const end = () => { --changes; };
  const watched = change => typeof change !== 'function' ? change : () => {
    ++changes;
    const changed = new Own(done => done(call(change, undefined, [])));
    call(then, changed, [end, end]);
    return changed;
  };
  const wished = wish => {
    if (typeof wish === 'function') return watched(wish);
    if (typeof wish !== 'object' || wish === null) return wish;
    return {__proto__: wish, update: watched(wish.update)};
  };
  if (begin) Document.prototype.startViewTransition = function startViewTransition(wish) {
    return call(begin, this, arguments.length > 0 ? [wished(wish)] : []);
  };
  Object.defineProperty(own, 'thinternal held', {value: () => changes > 0});

  // What is awaited may bring an object, which never comes where a script of the page has put a
  // `then` of its own on all objects.
  const then = Own.prototype.then, everything = Object.prototype;
  // The browser brings nothing of a film that is to load once it plays, or that has no source left
  // to try, nor of a lazy image before the view, or what shows a part of it, is near to it. What is
  // this near the browser loads, though no part of it is seen.
  const near = 1250, beside = 600;
  const is_away = (one, view) => one.bottom < view.top - near || one.top > view.bottom + near ||
    one.right < view.left - beside || one.left > view.right + beside;
  const is_cut_off = image => {
    const place = image.getBoundingClientRect(), {innerWidth: right, innerHeight: bottom} = own;
    for (let one = image; one && one !== document.body;) {
      const style = getComputedStyle(one), cuts = one !== image && style.overflowX !== 'visible';
      if (cuts && is_away(place, one.getBoundingClientRect())) return true;
      const is_free = style.position === 'absolute' || style.position === 'fixed';
      one = is_free ? one.offsetParent : one.parentElement;
    }
    return is_away(place, {left: 0, top: 0, right, bottom});
  };
  const comes_late = image => image.loading === 'lazy' && !image.complete &&
    (!image.checkVisibility() || is_cut_off(image));
  const comes_never = film => film.networkState === 0 || film.networkState === 3 ||
    (film.networkState === 1 && film.readyState === 0 && film.preload === 'none');
  function settled(waits_for_all) {
    let open = 1, done;
    const come = () => { if (--open === 0) done(0); };
    const await_promise = one => { ++open; call(then, one, [come, come]); };
    const await_event = (target, names) => {
      let is_open = true;
      const end = () => { if (is_open) come(); is_open = false; };
      ++open;
      for (let i = 0; i < names.length; ++i) target.addEventListener(names[i], end, {once: true});
    };
    const {images, fonts} = document, films = document.querySelectorAll('video');
    const ready = waits_for_all && fonts.ready;
    if (ready && !('then' in everything)) await_promise(ready);
    else if (ready && fonts.status === 'loading') await_event(fonts, ['loadingdone']);
    for (let i = 0; i < images.length; ++i) {
      const is_awaited = waits_for_all ? !comes_late(images[i]) : images[i].complete;
      if (is_awaited) await_promise(images[i].decode());
    }
    for (let i = 0; waits_for_all && i < films.length; ++i) {
      const film = films[i], is_there = film.readyState >= 3 || film.error || !film.currentSrc;
      if (!is_there && !comes_never(film)) await_event(film, ['canplay', 'error']);
    }
    return new Own(end => { done = end; come(); });
  }
  Object.defineProperty(own, 'thinternal settled', {value: settled});
})();)js";

// A style sheet that is named by another one holds that back, too.
const char* const k_blocked_by = R"js((() => {
  const has_come = url => performance.getEntriesByName(url).length > 0;
  const is_awaited = (url, media) =>
    Boolean(url) && !has_come(url) && matchMedia(media || 'all').matches;
  for (const link of document.querySelectorAll('link[rel~=stylesheet]')) {
    if (!link.disabled && !link.sheet && is_awaited(link.href, link.media)) return link.href;
  }
  for (const sheet of document.styleSheets) {
    let rules = [];
    try { rules = sheet.cssRules; } catch {}  // of another site
    for (const rule of rules) {
      if (!(rule instanceof CSSImportRule) || rule.styleSheet) continue;
      const url = new URL(rule.href, sheet.href || document.baseURI).href;
      if (is_awaited(url, rule.media.mediaText)) return url;
    }
  }
  return '';
})())js";

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
