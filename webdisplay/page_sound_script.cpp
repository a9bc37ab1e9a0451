// page_sound_script.cpp - what makes a page that lives by its own clock sound by it. One function
// with the driver of films, which follows it in page_scripts.cpp.
#include "webdisplay/page_scripts.h"

namespace pennywort::webdisplay::page_scripts {

// Contexts render off line, as far as the page's time goes, and are listened to where they are
// halted; films and sounds are decoded once and mixed by script. Times are positions: samples of
// 1/48000 s since the page's time 0.
//
// The bytes of a file of this machine are not to come into the hands of the page's own scripts,
// which may replace whatever the browser has: so all that touches them is taken here before those
// run, and called without a look at anything that could have been replaced.
const char* const k_sound_driver = R"js(
  const key = 'thinternal sound', rate = 48000;
  const tell = self.thinternalFilms;
  delete self.thinternalFilms;
  const call = Reflect.apply;
  const offline = self.OfflineAudioContext, online = self.AudioContext;
  const warn = console.warn.bind(console);
  const said = new Set();
  const say = text => {
    if (said.has(text) || said.size >= 20) return;
    said.add(text);
    warn('sound: ' + text);
  };

  function make_hub() {
    const quantum = 128, packet = 48, longest = 3600 * rate, window_of_ears = 32768;
    const native = {
      suspend: offline.prototype.suspend, resume: offline.prototype.resume,
      start: offline.prototype.startRendering, decode: offline.prototype.decodeAudioData,
      listen: AnalyserNode.prototype.getFloatTimeDomainData, from_base64: Uint8Array.fromBase64,
      to_base64: Uint8Array.prototype.toBase64, put: Uint8Array.prototype.set,
      fetch: self.fetch.bind(self), ArrayBuffer, Uint8Array,
      channel: AudioBuffer.prototype.getChannelData
    };
    const clock = performance.now.bind(performance);

    // --- time

    let told = 0, at = 0, seen = 0, has_begun = false, is_told = false;
    const now = () => has_begun ? at + (clock() - seen) * rate / 1000 : 0;
    const rouse = () => {
      if (is_told) return;
      is_told = true;
      told = Math.floor(now() / packet) * packet;
      tell('');
    };

    // --- what is heard and not handed over yet: from `told` on

    let sides = [new Float32Array(0), new Float32Array(0)];
    const make_room = until => {
      if (sides[0].length >= until - told) return;
      sides = sides.map(side => {
        const longer = new Float32Array(until - told);
        longer.set(side);
        return longer;
      });
    };
    function hand_over(until) {
      const count = until - told;
      const both = new Float32Array(count * 2);
      sides.forEach((side, i) => both.set(side.subarray(0, count), i * count));
      sides = sides.map(side => side.slice(count));
      const from = told;
      told = until;
      if (both.every(sample => sample === 0)) return '';
      return from + ':' + call(native.to_base64, new native.Uint8Array(both.buffer), []);
    }

    // --- contexts

    let contexts = [];
    function listen(one, count) {
      let size = 32;
      while (size < count) size *= 2;
      one.ears.forEach((ear, side) => {
        if (ear.fftSize !== size) ear.fftSize = size;
        const heard = new Float32Array(size), into = sides[side];
        call(native.listen, ear, [heard]);
        const first = one.origin + one.done - told - size + count;
        for (let i = size - count; i < size; ++i) into[first + i] += heard[i];
      });
    }
    async function render(one, until) {
      const end = one.ends_at ?? until;
      const goal = Math.min(Math.floor((end - one.origin) / quantum) * quantum, longest - quantum);
      while (one.done < goal) {
        const next = Math.min(goal, one.done + window_of_ears);
        const halted = call(native.suspend, one.context, [(next + 0.5) / rate]);
        const going = call(one.has_started ? native.resume : native.start, one.context, []);
        one.has_started = true;
        going.catch(() => {});
        await halted;
        listen(one, next - one.done);
        one.done = next;
      }
      if (one.done >= longest - quantum) {
        say('an AudioContext is heard for an hour, and no longer');
        one.is_closed = true;
      }
      one.is_frozen = one.ends_at !== undefined;
    }

    // --- films and sounds

    const frames = [], pieces = [], sources = new Map(), late = new WeakSet();
    const files = Object.create(null);
    let give_up = () => {};

    const name_of = url => url.startsWith('data:') ? url.slice(0, 40) : url.slice(0, 300);
    async function fetched(url) {
      let answer;
      try {
        answer = await native.fetch(url);
      } catch {
        throw url.startsWith('blob:') ? 'a script makes it piece by piece' :
          'the page may not fetch it (CORS, or its content security policy)';
      }
      if (!answer.ok) throw 'the server says ' + answer.status;
      const bytes = await answer.arrayBuffer();
      return {bytes, size: bytes.byteLength};
    }
    const read = url => new Promise((done, failed) => {
      files[url] = {done, failed, bytes: null, size: 0, count: 0};
      tell('file ' + url);
    });
    // What the host has of such a file; nothing where it cannot be read.
    function take_file(url, total, text) {
      const file = files[url];
      if (!file) return;
      if (!total) return file.failed('it cannot be read, or is longer than 256 MiB');
      file.size = total;
      file.bytes = file.bytes || new native.ArrayBuffer(total);
      const part = native.from_base64(text);
      call(native.put, new native.Uint8Array(file.bytes), [part, file.count]);
      file.count += part.length;
      if (file.count >= total) file.done();
    }
    // Whether a film names a format of sound: "A_OPUS" in Matroska, "soun" in MPEG-4.
    function names_sound(bytes, size) {
      const edge = 1 << 20, all = new native.Uint8Array(bytes);
      for (let i = 0; i + 3 < size; ++i) {
        if (i === edge && size > 2 * edge) i = size - edge;
        if (all[i] === 65 && all[i + 1] === 95 && all[i + 2] > 64 && all[i + 2] < 91) return true;
        if (all[i] === 115 && all[i + 1] === 111 && all[i + 2] === 117 && all[i + 3] === 110) {
          return true;
        }
      }
      return false;
    }
    const centre = Math.SQRT1_2;
    function folded(buffer) {
      const all = [];
      for (let i = 0; i < buffer.numberOfChannels; ++i) all.push(call(native.channel, buffer, [i]));
      if (all.length === 1) return [all[0], all[0]];
      if (all.length === 6) {
        return [[0, 4], [1, 5]].map(([front, back]) =>
          all[front].map((sample, i) => sample + centre * (all[2][i] + all[back][i])));
      }
      if (all.length === 4) {
        return [0, 1].map(side => all[side].map((sample, i) => (sample + all[side + 2][i]) / 2));
      }
      return all.slice(0, 2);
    }
    async function load(url, is_film) {
      const is_file = url.slice(0, 5) === 'file:';
      const held = is_file ? await read(url) : await fetched(url);
      const {bytes, size} = held || files[url];
      delete files[url];
      if (is_film && !names_sound(bytes, size)) return null;
      try {
        return folded(await call(native.decode, new offline(2, 1, rate), [bytes]));
      } catch {
        throw 'this browser cannot decode it';
      }
    }
    function source_of(film) {
      const url = film.currentSrc;
      let source = sources.get(url);
      if (source) return source;
      source = {sides: null, is_over: false};
      const fail = why => say(name_of(url) + ' is not in the film: ' + why);
      source.coming = load(url, film.localName === 'video')
        .then(sides => { source.sides = sides; }, fail).then(() => { source.is_over = true; });
      sources.set(url, source);
      return source;
    }
    const level_of = film => film.muted ? 0 : film.volume;
    const turn = () => new Promise(done => {
      const {port1, port2} = new MessageChannel();
      port1.onmessage = () => { port1.close(); done(); };
      port2.postMessage(0);
    });
    const change_of = film => new Promise(done => {
      for (const name of ['loadedmetadata', 'error', 'emptied', 'abort']) {
        film.addEventListener(name, done, {once: true, capture: true});
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
      if (level_of(film) === 0 || run.source || run.is_refused || !has_source) return;
      const is_there = !film.srcObject && await has_come(film);
      const refusal = refusal_of(film);
      if (refusal) {
        run.is_refused = true;
        return say(refusal);
      }
      if (!is_there) return;
      run.is_ready = true;
      run.source = source_of(film);
      if (film.playbackRate !== 1 && film.preservesPitch) {
        say(name_of(film.currentSrc) + ': its pitch goes with its rate of ' + film.playbackRate);
      }
      await run.source.coming;
    }
    const in_time = (film, coming) => late.has(film) ? null : Promise.race([coming,
      new Promise(done => {
        const before = give_up;
        give_up = () => { before(); done(true); };
      })
    ]).then(is_late => {
      if (is_late !== true) return;
      late.add(film);
      say(name_of(film.currentSrc || film.src) + ' comes late, and begins in its middle');
    });
    function mix(film, run, until) {
      const from = Math.max(run.heard, told);
      run.heard = until;
      const level = level_of(film), heard = run.source && run.source.sides;
      if (!heard || level === 0) return;
      const begun = Math.round(run.begun), speed = run.speed;
      const first = speed === 1 ? Math.round(run.from * rate) : run.from * rate;
      const end = Math.round(film.duration * rate);
      for (let i = from; i < until; ++i) {
        let place = first + (i - begun) * speed;
        if (place >= end && !film.loop) return;
        place %= end;
        const low = Math.floor(place), part = place - low;
        const high = low + 1 < end || !film.loop ? low + 1 : 0;
        for (let side = 0; side < 2; ++side) {
          const one = heard[side][low] || 0, other = heard[side][high] || 0;
          sides[side][i - told] += level * (part ? one + part * (other - one) : one);
        }
      }
    }

    // --- one frame

    const runs = () => frames.filter(one => !one.self.closed).flatMap(one => [...one.films]);
    async function step(until) {
      await Promise.all(frames.filter(one => !one.self.closed).map(one => one.place()));
      const all = [...pieces.map(piece => [piece[0], piece[1]]), ...runs()];
      await Promise.all(all.map(([film, run]) => in_time(film, prepare(film, run))));
      give_up = () => {};
      make_room(until);
      contexts = contexts.filter(one => !one.self.closed && !one.is_closed);
      let known = until;
      for (const one of contexts) {
        if (!one.is_frozen) await render(one, until);
        if (one.is_ending) one.is_closed = true;
        else if (!one.is_frozen && !one.is_closed) known = Math.min(known, one.origin + one.done);
      }
      for (const [film, run, end] of pieces.splice(0)) mix(film, run, end);
      for (const [film, run] of runs()) mix(film, run, until);
      return hand_over(Math.max(told, Math.floor(known / packet) * packet));
    }
    // Once more for the same frame: what has not come by now is not waited for.
    let busy = null;
    function drive(microseconds) {
      const until = Math.floor(microseconds * 48 / 1000 + 1e-6);
      if (busy && busy.until === until) {
        give_up();
        return busy.end.then(() => '');
      }
      at = until;
      seen = clock();
      has_begun = true;
      if (!is_told) return '';
      const mine = busy = {until};
      busy.end = step(until).finally(() => { if (busy === mine) busy = null; });
      return busy.end;
    }

    Object.defineProperty(self, 'thinternal films', {value: drive});
    Object.defineProperty(self, 'thinternal file', {value: take_file});
    return Object.freeze({
      now, rouse, say, longest,
      add(one) {
        contexts.push(one);
        rouse();
      },
      join(frame) { frames.push(frame); },
      end(film, run) { pieces.push([film, run, Math.round(now())]); }
    });
  }

  // --- in each document

  const hub = (() => {
    try {
      if (self !== top) return top[key];
    } catch {
      return null;  // of another site
    }
    const made = make_hub();
    Object.defineProperty(self, key, {value: made});
    return made;
  })() || {
    now: () => performance.now() * rate / 1000, rouse() {}, join() {}, end() {}, is_apart: true,
    say() { say('what a frame of another site says is not in the film'); }
  };

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
    const AudioContext = {AudioContext: class {
      constructor() {
        const context = Reflect.construct(offline, [1, hub.longest, rate], new.target);
        const one = {context, self, origin: Math.round(hub.now()), done: 0, events: new WeakSet()};
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
          const ear = new AnalyserNode(context);
          split.connect(ear, side);
          ear.connect(end);
          return ear;
        });
        hub.add(one);
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
