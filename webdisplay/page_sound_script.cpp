// page_sound_script.cpp - what makes a page that lives by its own clock sound by it. One function
// with the driver of films, which follows it in page_scripts.cpp.
#include "webdisplay/page_scripts.h"

namespace pennywort::webdisplay::page_scripts {

// Contexts render off line, as far as the page's time goes, and are listened to where they are
// halted. Films and sounds are only watched here: what is to be heard of them goes to the host as
// orders, and is fetched, decoded and mixed in a world of its own (page_sound_world.cpp), for no
// script of a page may hold the samples of another site's file, or of one of this machine. Whatever
// is here a page may reach and bend, and it finds nothing but what it has made itself. Times are
// positions: samples of 1/48000 s since the page's time 0.
const char* const k_sound_driver = R"js(
  const key = 'thinternal sound';
  const tell = self.thinternalFilms ?? (() => {});
  delete self.thinternalFilms;
  const call = Reflect.apply;
  // The page's scripts may put anything in the place of these and of what is in them.
  const kept = source =>
    Object.defineProperties({__proto__: null}, Object.getOwnPropertyDescriptors(source));
  const Promise = self.Promise, Math = kept(self.Math), JSON = kept(self.JSON);
  const isFinite = self.isFinite, {then} = Promise.prototype;
  const after = (promise, done, failed) => call(then, promise, [done, failed]);
  // Promises here have no objects for values: whatever the page has put on all of them for `then`
  // would be called, and decide when they are kept.
  const all = list => new Promise((done, failed) => {
    let open = list.length;
    const come = () => { if (--open <= 0) done(); };
    if (open === 0) done();
    for (let i = 0; i < list.length; ++i) {
      if (list[i] && typeof list[i] === 'object') after(list[i], come, failed);
      else come();
    }
  });
  const offline = self.OfflineAudioContext, online = self.AudioContext;

  // A frame of another site has one of its own, for the pictures of its films alone.
  function make_hub(is_apart) {
    const quantum = 128, packet = 48, window_of_ears = 32768;
    const native = {
      suspend: offline.prototype.suspend, resume: offline.prototype.resume,
      start: offline.prototype.startRendering,
      listen: AnalyserNode.prototype.getFloatTimeDomainData
    };
    const clock = performance.now.bind(performance);

    // --- time

    let at = 0, seen = clock(), has_begun = false, is_told = false;
    const now = () => has_begun || is_apart ? at + (clock() - seen) * rate / 1000 : 0;
    const rouse = () => {
      if (is_told) return;
      is_told = true;
      told = Math.floor(now() / packet) * packet;
      tell(is_apart ? 'apart' : '');
    };

    // --- pictures of films

    let stands = false;
    const see = root => {
      if (stands || (root.localName !== 'video' && !root.querySelector('video'))) return;
      stands = true;
      tell('stands');
    };
    let moves = false, shown = [];  // those that are put to the moment of the frame
    const move = () => {
      if (!moves) tell('film');
      moves = true;
    };
    const runs_film = () => runs().some(([film]) => film.localName === 'video');
    // When they are shown; and whether there is any to come in the next frame.
    const await_shown = () => after(all(shown.map(run => run.is_blind || run.picture)),
                                    () => moves = shown.length > 0 || runs_film());

    // --- contexts

    let contexts = [];
    // What a context renders stays in its room until it ends. Each has one for all that it will
    // ever render, and no other afterwards; so many at once have one of so many seconds.
    const rooms = [
      {most: 4, live: 0, seconds: 3600,
       words: 'an AudioContext is heard for an hour, and no longer'},
      {most: 12, live: 0, seconds: 600,
       words: 'an AudioContext beside 4 others is heard for 10 minutes, and no longer'},
      {most: 112, live: 0, seconds: 60,
       words: 'an AudioContext beside 16 others is heard for a minute, and no longer'}
    ];
    const refused = 'this browser has no room for one more AudioContext, which is not heard';
    const longest_rest = 60 * rate;
    // Without a room it is not rendered at all.
    function with_room(make) {
      const room = rooms.find(one => one.live < one.most), length = room?.seconds * rate;
      if (!room) say('of more than 128 AudioContexts at once the further ones are not heard');
      try {
        if (room) {
          const context = make(length);
          ++room.live;
          return {room, length, context};
        }
      } catch {
        say(refused);
      }
      return {context: make(quantum)};
    }
    const give_back = one => {
      if (one.has_room) --one.room.live;
      one.has_room = false;
    };
    // Its room goes with its end, which it comes to without its nodes, unless that is far.
    function put_away(one) {
      one.is_closed = true;
      const has_rest = one.has_started && !one.is_refused;
      if (has_rest && one.length - one.done > longest_rest) return;
      give_back(one);
      if (!has_rest) return;
      one.out.disconnect();
      after(call(native.resume, one.context, []), () => {}, () => {});
    }
    function listen(one, count) {
      let size = 32;
      while (size < count) size *= 2;
      one.is_loud = false;
      one.ears.forEach((ear, side) => {
        if (ear.fftSize !== size) ear.fftSize = size;
        const heard = new Float32Array(size), into = sides[side];
        call(native.listen, ear, [heard]);
        const first = one.origin + one.done - told - size + count;
        for (let i = size - count; i < size; ++i) {
          into[first + i] += heard[i];
          if (heard[i] !== 0) one.is_loud = true;
        }
      });
    }
    // False where the browser refuses it: it may have no such room.
    const render_to = (one, next) => new Promise(done => {
      const refuse = one.give_up = () => done(false);
      after(call(native.suspend, one.context, [(next + 0.5) / rate]), () => done(true), refuse);
      const go = one.has_started ? native.resume : native.start;
      one.has_started = true;
      after(call(go, one.context, []), () => {}, refuse);
    });
    async function render(one, until) {
      const end = one.ends_at ?? until, last = one.length - quantum;
      const goal = Math.min(Math.floor((end - one.origin) / quantum) * quantum, last);
      while (one.done < goal) {
        const next = Math.min(goal, one.done + window_of_ears);
        if (!await render_to(one, next)) {
          if (!one.is_gone) say(refused);
          one.is_refused = one.is_closed = true;
          return;
        }
        listen(one, next - one.done);
        one.done = next;
      }
      if (one.done >= last) {
        if (one.is_loud) say(one.room.words);
        one.is_over = one.is_closed = true;
      }
      one.is_frozen = one.ends_at !== undefined;
    }
    // Their document has gone, and what they would still render with it.
    function leave(is_left) {
      for (const one of contexts.filter(is_left)) {
        give_back(one);
        one.is_gone = true;
        one.give_up?.();
      }
      contexts = contexts.filter(one => !one.is_gone);
    }
    async function render_all(until) {
      leave(one => one.self.closed);
      let known = until;
      for (const one of contexts) {
        if (!one.is_frozen && !one.is_gone) await render(one, until);
        if (one.is_gone) continue;
        if (one.is_closed || one.is_ending) put_away(one);
        else if (!one.is_frozen) known = Math.min(known, one.origin + one.done);
      }
      contexts = contexts.filter(one => !one.is_closed);
      return known;
    }

    // --- films and sounds

    const frames = new Set(), pieces = [], late = new WeakSet();
    let give_up = () => {}, is_hurried = false;
    const level_of = film => film.muted ? 0 : film.volume;
    const turn = () => new Promise(done => {
      const {port1, port2} = new MessageChannel();
      port1.onmessage = () => { port1.close(); done(); };
      port2.postMessage(0);
    });
    const change_of = film => new Promise(done => {
      for (const name of ['loadedmetadata', 'error', 'emptied', 'abort']) {
        film.addEventListener(name, () => done(), {once: true, capture: true});
      }
    });
    async function has_come(film) {
      for (let turns = 0; film.readyState < 1 && !film.error && turns < 4;) {
        if (film.networkState === 2) await change_of(film);
        else ++turns;
        await turn();
      }
      return film.readyState >= 1;
    }
    function refusal_of(film) {
      if (film.srcObject) return 'a stream (srcObject) is not in the film';
      const name = name_of(film.currentSrc || film.src);
      if (film.error) return name + ' is not in the film: the browser cannot play it';
      if (!isFinite(film.duration)) return name + ' is not in the film: it has no end';
      return '';
    }
    async function prepare(film, run) {
      const has_source = film.srcObject || film.currentSrc || film.src || film.firstElementChild;
      if (level_of(film) === 0 || run.url || run.is_refused || !has_source) return;
      const is_there = !film.srcObject && await has_come(film);
      const refusal = refusal_of(film);
      if (refusal) {
        run.is_refused = true;
        return say(refusal);
      }
      if (!is_there) return;
      run.come?.(film);  // what a script of the page has made up may have no such thing
      run.is_ready = true;
      run.url = film.currentSrc;
      run.length = Math.round(film.duration * rate);
      if (run.speed !== 1 && run.speed !== 0 && film.preservesPitch) {
        say(name_of(film.currentSrc) + ': its pitch goes with its rate of ' + film.playbackRate);
      }
    }
    // What needs no more is there by then. While something is being fetched, messages wait.
    async function at_once() {
      for (let i = 0; i < 20; ++i) await null;
    }
    const in_time = (film, coming) => late.has(film) ? null : after(new Promise((done, failed) => {
      const before = give_up;
      give_up = () => { before(); done(true); };
      if (is_hurried) after(at_once(), give_up);
      after(coming, () => done(), failed);
    }), is_late => {
      if (is_late !== true) return;
      late.add(film);
      say(name_of(film.currentSrc || film.src) + ' comes late, and begins in its middle');
    });
    // What is to be heard of it until then, as page_sound_world.cpp reads it.
    function order_of([film, run, until]) {
      const from = Math.max(run.heard, told), level = level_of(film), {speed, url, length} = run;
      run.heard = until;
      if (!url || level === 0 || speed === 0 || from >= until) return [];
      const first = speed === 1 ? Math.round(run.from * rate) : run.from * rate;
      return [{url, from, until, level, speed, first, length, begun: Math.round(run.begun),
               is_film: film.localName === 'video', is_loop: film.loop}];
    }
    async function those_in_time(all_of_them) {
      await all(all_of_them);
      give_up = () => {};
    }
    // A film that begins while the page's time passes is waited for: how soon it comes goes by the
    // day's time. What the page itself brings it (MediaSource) may have to wait for the page's.
    function arrival_of([film, run]) {
      if (film.localName !== 'video' || film.readyState > 0 || run.is_of_start) return null;
      const source = film.currentSrc || film.src;
      if (film.srcObject || source.startsWith('blob:')) return null;
      return source || film.firstElementChild ? in_time(film, has_come(film)) : null;
    }
    // As far as that can be known without a look at its file.
    const is_audible = ([film, run]) => level_of(film) > 0 && film.readyState > 0 &&
      run.speed !== 0 && (film.localName === 'audio' || film.webkitAudioDecodedByteCount > 0);

    // --- one frame

    const open_frames = () => [...frames].filter(one => !one.self.closed);
    const runs = () => open_frames().flatMap(one => [...one.films]);
    const ran = until => [...pieces, ...runs().map(([film, run]) => [film, run, until])];
    let ordered = 0;
    async function step(until, is_heard) {
      shown = [];
      await those_in_time(runs().map(arrival_of));
      await all(open_frames().map(one => one.place()));
      if (is_apart) {
        pieces.length = 0;
        return '';
      }
      const heard = is_heard ? ran(until) : [];
      await those_in_time(heard.map(([film, run]) => in_time(film, prepare(film, run))));
      make_room(until);
      const known = await render_all(until);
      return is_heard ? speak(until, known) : keep_silent(until, known);
    }
    const whole = position => Math.max(told, Math.floor(position / packet) * packet);
    function speak(until, known) {
      const from = told, orders = ran(until).flatMap(order_of);
      pieces.length = 0;
      const to = whole(known), heard = hand_over(to);
      for (const one of orders) ordered = Math.max(ordered, one.until);
      const is_bare = orders.length === 0 && ordered <= from;
      const text = is_bare ? '' : JSON.stringify({from, to, until, orders});
      return heard || text ? heard + '\n' + text : '';
    }
    // Nobody listens. That there would be something to hear is told all the same.
    function keep_silent(until, known) {
      const is_loud = contexts.some(one => one.is_loud) || ran(until).some(is_audible);
      for (const [film, run] of ran(until)) run.heard = until;
      pieces.length = 0;
      drop(whole(known));
      if (is_loud) say('nobody listens');
      return '';
    }
    // Before a document's first frame its time stands, and that frame may be any of the film's.
    function begin(until) {
      const gone = until - now();
      has_begun = true;
      if (is_told) told += Math.floor(gone / packet) * packet;
      for (const one of contexts) {
        one.origin += gone;
        if (one.ends_at !== undefined) one.ends_at += gone;
      }
      for (const piece of pieces) piece[2] += gone;
      for (const [, run] of ran(until)) {
        run.begun += gone;
        run.heard += gone;
        run.is_of_start = until === 0;  // and has been waited for, if it was to be
      }
    }
    // Once more for the same frame: what has not come by now is not waited for.
    let busy = null;
    function drive(microseconds, is_heard) {
      const until = Math.floor(microseconds * 48 / 1000 + 1e-6);
      if (busy && busy.until === until) {
        is_hurried = true;
        give_up();
        return after(busy.end, () => '');
      }
      if (!has_begun) begin(until);
      at = until;
      seen = clock();
      if (!is_told) return '';
      const mine = busy = {until};
      is_hurried = false;
      const end = () => { if (busy === mine) busy = null; };
      busy.end = after(step(until, is_heard), said => { end(); return said; },
                       fault => { end(); throw fault; });
      return busy.end;
    }

    Object.defineProperty(self, 'thinternal films', {value: drive});
    Object.defineProperty(self, 'thinternal shown', {value: await_shown});
    Object.defineProperty(self, 'thinternal stalled', {value: () =>
      runs().find(([film]) => film.seeking)?.[0].currentSrc ?? ''});
    return Object.freeze({
      now, rouse, with_room, see, move, is_apart,
      say: is_apart ? () => say('what a frame of another site says is not in the film') : say,
      show(run) { shown.push(run); },
      add(one) {
        contexts.push(one);
        rouse();
      },
      join(frame) { frames.add(frame); },
      part(frame) {
        frames.delete(frame);
        leave(one => one.self === frame.self);
      },
      end(film, run) { pieces.push([film, run, Math.round(now())]); }
    });
  }

  // --- in each document

  const hub = (() => {
    const is_frame = self !== top;
    try {
      if (is_frame && top[key]) return top[key];
    } catch {}  // of another site
    const made = make_hub(is_frame);
    if (!is_frame) Object.defineProperty(self, key, {value: made});
    return made;
  })();

  function replace_contexts() {
    const records = new WeakMap();
    const of = context => {
      const one = records.get(context);
      if (!one) throw new TypeError('Illegal invocation');
      return one;
    };
    const position = one => Math.max(0, one.is_frozen ? one.done :
      (one.ends_at ?? Math.round(hub.now())) - one.origin);
    const change = context => queueMicrotask(() => {
      const event = new Event('statechange');
      records.get(context).events.add(event);
      context.dispatchEvent(event);
    });
    // As the browser refuses them. Its own contexts would take a device, and the rate here is the
    // film's, whatever is asked for.
    const hints = ['balanced', 'interactive', 'playback'];
    function mind(options) {
      const failed = "Failed to construct 'AudioContext': ";
      const wrong = (name, why) => new TypeError(failed +
        `Failed to read the '${name}' property from 'AudioContextOptions': ${why}`);
      if (options === undefined || options === null) return;
      if (Object(options) !== options) {
        throw new TypeError(failed + "The provided value is not of type 'AudioContextOptions'.");
      }
      const {latencyHint: hint, sampleRate: asked, sinkId: sink} = options;
      if (typeof hint === 'number' && !isFinite(hint)) {
        throw wrong('latencyHint', 'The provided double value is non-finite.');
      }
      if (typeof hint !== 'number' && hint !== undefined && !hints.includes(String(hint))) {
        throw wrong('latencyHint', `The provided value '${hint}' is not a valid enum value of ` +
          'type AudioContextLatencyCategory.');
      }
      const number = asked === undefined ? rate : Math.fround(asked);
      if (!isFinite(number)) {
        throw wrong('sampleRate', 'The provided float value is non-finite.');
      }
      if (sink === null || (Object(sink) === sink && sink.type !== 'none')) {
        throw wrong('sinkId', "The provided value is not of type 'AudioSinkOptions'.");
      }
      if (number >= 3000 && number <= 768000) return;
      throw new DOMException(`${failed}The hardware sample rate provided (${number}) is outside ` +
        'the range [3000, 768000].', 'NotSupportedError');
    }
    const AudioContext = {AudioContext: class {
      constructor(options) {
        mind(options);
        const make = length => Reflect.construct(offline, [1, length, rate], new.target);
        const {room, length, context} = hub.with_room(make);
        const one = {context, self, room, length, has_room: Boolean(room), done: 0,
                     origin: Math.round(hub.now()), events: new WeakSet()};
        records.set(context, one);
        // The halts of each frame are none of the page's business.
        context.addEventListener('statechange', event => {
          if (!one.events.has(event)) event.stopImmediatePropagation();
        });
        one.out = new GainNode(context, {channelCount: 2, channelCountMode: 'explicit'});
        Object.defineProperty(one.out, 'maxChannelCount', {value: 2});
        const split = new ChannelSplitterNode(context, {numberOfOutputs: 2});
        const end = native_destination.call(context);
        one.out.connect(split);
        one.ears = [0, 1].map(side => {
          // One that has yet to find out how many channels it has loses its first 128 samples.
          const ear = new AnalyserNode(context, {channelCount: 1, channelCountMode: 'explicit'});
          split.connect(ear, side);
          ear.connect(end);
          return ear;
        });
        if (room) hub.add(one);
        change(context);
        return context;
      }
      get destination() { return of(this).out; }
      get currentTime() { return position(of(this)) / rate; }
      get state() {
        const one = of(this);
        return one.is_ending ? 'closed' : one.ends_at === undefined ? 'running' : 'suspended';
      }
      get baseLatency() { return 0; }
      get outputLatency() { return 0; }
      get sinkId() { return ''; }
      setSinkId() { return Promise.resolve(); }
      getOutputTimestamp() {
        return {contextTime: this.currentTime, performanceTime: performance.now()};
      }
      suspend() {
        const one = of(this);
        if (one.is_ending) return Promise.reject(new DOMException('closed', 'InvalidStateError'));
        if (one.ends_at === undefined) {
          one.ends_at = Math.round(hub.now());
          change(this);
        }
        return Promise.resolve();
      }
      resume() {
        const one = of(this);
        if (one.is_ending) return Promise.reject(new DOMException('closed', 'InvalidStateError'));
        if (one.ends_at !== undefined) {
          if (one.is_frozen) one.origin = Math.round(hub.now()) - one.done;
          one.ends_at = undefined;
          one.is_frozen = false;
          change(this);
        }
        return Promise.resolve();
      }
      close() {
        const one = of(this);
        if (one.is_ending) return Promise.reject(new DOMException('closed', 'InvalidStateError'));
        one.ends_at = one.ends_at ?? Math.round(hub.now());
        one.is_ending = true;
        change(this);
        return Promise.resolve();
      }
      createMediaElementSource(element) {
        hub.say('createMediaElementSource: the element is heard past the nodes of its context');
        const node = new GainNode(this);
        Object.defineProperty(node, 'mediaElement', {value: element});
        return node;
      }
      createMediaStreamSource(stream) {
        hub.say('createMediaStreamSource: what a stream brings is not in the film');
        const node = new GainNode(this);
        Object.defineProperty(node, 'mediaStream', {value: stream});
        return node;
      }
      createMediaStreamTrackSource() { return this.createMediaStreamSource(null); }
      createMediaStreamDestination() {
        hub.say('createMediaStreamDestination: what goes there is not in the film');
        const node = new GainNode(this);
        const {stream} = new online().createMediaStreamDestination();
        Object.defineProperty(node, 'stream', {value: stream});
        return node;
      }
    }}.AudioContext;
    const base = self.BaseAudioContext.prototype;
    const getter = Object.getOwnPropertyDescriptor(base, 'destination').get;
    const native_destination = {call: context => call(getter, context, [])};
    Object.defineProperty(AudioContext, 'length', {value: 0});
    Object.defineProperty(AudioContext.prototype, Symbol.toStringTag, {value: 'AudioContext'});
    Object.setPrototypeOf(AudioContext.prototype, base);
    Object.setPrototypeOf(AudioContext, self.BaseAudioContext);
    for (const name of ['AudioContext', 'webkitAudioContext']) {
      if (!(name in self)) continue;
      Object.defineProperty(self, name,
                            {value: AudioContext, configurable: true, writable: true});
    }

    // Now is the page's now, and not where the context was halted.
    for (const proto of [AudioScheduledSourceNode.prototype, AudioBufferSourceNode.prototype]) {
      for (const name of ['start', 'stop']) {
        if (!Object.hasOwn(proto, name)) continue;
        const method = proto[name];
        proto[name] = function (...given) {
          const one = records.get(this.context);
          const when = one ? position(one) / rate : 0;
          if (one && one.is_over) hub.say(one.room.words);
          if (one && !(given[0] < 0 || given[0] > when)) given[0] = when;
          return call(method, this, given);
        };
      }
    }
  }

  if (hub.is_apart) {
    for (const name of ['AudioContext', 'webkitAudioContext']) {
      if (!(name in self)) continue;
      self[name] = new Proxy(online, {construct(target, given, made) {
        hub.say();
        return Reflect.construct(target, given, made);
      }});
    }
  } else {
    replace_contexts();
  }
  if (self.SpeechSynthesis) {
    const speak = SpeechSynthesis.prototype.speak;
    SpeechSynthesis.prototype.speak = function (words) {
      hub.say('what speechSynthesis speaks is not in the film');
      return call(speak, this, [words]);
    };
  }
)js";

}  // namespace pennywort::webdisplay::page_scripts
