// page_sound_world.cpp - the world beside a page's own scripts in which the films and sounds of a
// page that lives by its own clock are heard: see page_hearing.
#include "webdisplay/page_scripts.h"

namespace pennywort::webdisplay::page_scripts {

// What is heard and not handed over yet lies in `sides`, from `told` on. Of a warning the host
// knows by its first words who has written it.
const char* const k_sound_common = R"js(
  const rate = 48000;
  const warn = console.warn.bind(console);
  const said = new Set();
  const say = text => {
    if (said.has(text) || said.size > 20) return;
    said.add(text);
    const more = 'more is not in the film than can be told';
    warn('thinternal sound: ' + (said.size > 20 ? more : text));
  };
  const name_of = url => url.startsWith('data:') ? url.slice(0, 40) : url.slice(0, 300);

  let told = 0;
  let sides = [new Float32Array(0), new Float32Array(0)];
  const make_room = until => {
    if (sides[0].length >= until - told) return;
    sides = sides.map(side => {
      const longer = new Float32Array(until - told);
      longer.set(side);
      return longer;
    });
  };
  function drop(until) {
    sides = sides.map(side => side.slice(until - told));
    told = until;
  }
  function hand_over(until) {
    const count = until - told, from = told;
    const both = new Float32Array(count * 2);
    sides.forEach((side, i) => both.set(side.subarray(0, count), i * count));
    drop(until);
    if (both.every(sample => sample === 0)) return '';
    return from + ':' + new Uint8Array(both.buffer).toBase64();
  }
)js";

// What is to be heard of which file comes from the page, which may send any order: it gets nothing
// back. Of files that are not heard only so many samples are kept, and then those that were heard
// last; the others are fetched and decoded again when they are needed. A page may have given up the
// name of what it has made itself (blob:), so that is kept as it came, up to as much again.
const char* const k_sound_world = R"js(
  const most = 60 * rate;  // of one frame
  const most_kept = 256 << 20;  // bytes: 11 minutes of two sides
  const sources = new Map(), files = new Map();  // the first in the order of their use

  async function fetched(url) {
    let answer;
    try {
      answer = await fetch(url);
    } catch {
      throw url.startsWith('blob:') ? 'a script makes it piece by piece, or has taken back its name' :
        'the page may not fetch it (CORS, or its content security policy)';
    }
    if (!answer.ok) throw 'the server says ' + answer.status;
    return new Uint8Array(await answer.arrayBuffer());
  }
  const read = url => new Promise((done, failed) => {
    files.set(url, {done, failed, bytes: null, count: 0});
    thinternalFile(url);
  });
  // What the host has of such a file; nothing where it cannot be read.
  function take_file(url, total, text) {
    const file = files.get(url);
    if (!file) return;
    if (total === 0) file.failed('it cannot be read, or is longer than 256 MiB');
    file.bytes ??= new Uint8Array(total);
    const part = Uint8Array.fromBase64(text);
    file.bytes.set(part, file.count);
    file.count += part.length;
    if (file.count < total) return;
    files.delete(url);
    file.done(file.bytes);
  }
  // Whether a film names a format of sound: "A_OPUS" in Matroska, "soun" in MPEG-4.
  function names_sound(all) {
    const edge = 1 << 20, size = all.length;
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
    for (let i = 0; i < buffer.numberOfChannels; ++i) all.push(buffer.getChannelData(i));
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
  async function load(source, is_film) {
    const {url} = source, is_file = url.startsWith('file:');
    const bytes = source.kept?.slice() ?? await (is_file ? read(url) : fetched(url));
    if (is_film && !names_sound(bytes)) return null;
    if (url.startsWith('blob:')) source.kept ??= bytes.slice();
    try {
      return folded(await new OfflineAudioContext(2, 1, rate).decodeAudioData(bytes.buffer));
    } catch {
      throw 'this browser cannot decode it';
    }
  }
  function source_of({url, is_film}) {
    const source = sources.get(url) ?? {url, kept: null};
    sources.delete(url);
    sources.set(url, source);
    if (source.coming) return source;
    Object.assign(source, {sides: null, is_over: false, is_late: false});
    const fail = why => say(name_of(url) + ' is not in the film: ' + why);
    source.coming = load(source, is_film).then(sides => { source.sides = sides; }, fail)
      .then(() => { source.is_over = true; });
    return source;
  }
  const size_of = ({sides}) => sides ? new Set(sides).size * sides[0].byteLength : 0;
  function release(used) {
    let decoded = 0, kept = 0;
    for (const source of [...sources.values()].reverse()) {
      decoded += size_of(source);
      kept += source.kept?.length ?? 0;
      if (used.includes(source)) continue;
      if (decoded > most_kept && source.sides) {
        decoded -= size_of(source);
        source.sides = source.coming = null;
      }
      if (kept > most_kept && source.kept) {
        kept -= source.kept.length;
        source.kept = null;
      }
      if (!source.coming && !source.kept) sources.delete(source.url);
    }
  }
  function mix({from, until, level, speed, first, length, begun, is_loop}, heard) {
    for (let i = Math.max(from, told); i < until; ++i) {
      let place = first + (i - begun) * speed;
      if (place >= length && !is_loop) return;
      place %= length;
      const low = Math.floor(place), part = place - low;
      const high = low + 1 < length || !is_loop ? low + 1 : 0;
      for (let side = 0; side < 2; ++side) {
        const one = heard[side][low] || 0, other = heard[side][high] || 0;
        sides[side][i - told] += level * (part ? one + part * (other - one) : one);
      }
    }
  }

  // --- one frame

  let hurry = () => {};
  async function wait_for(all) {
    const open = all.filter(source => !source.is_over && !source.is_late);
    if (open.length === 0) return;
    await Promise.race([Promise.all(open.map(source => source.coming)),
                        new Promise(done => { hurry = done; })]);
    for (const source of open.filter(source => !source.is_over)) {
      source.is_late = true;
      say(name_of(source.url) + ' comes late, and begins in its middle');
    }
  }
  async function hear_frame(text, is_hurried) {
    if (text === '') return '';
    const {from, to, until, orders} = JSON.parse(text);
    if (!(until - from <= most)) return '';
    const all = orders.map(source_of), coming = wait_for(all);
    if (is_hurried) hurry();
    await coming;
    if (told < from) drop(from);
    make_room(until);
    orders.forEach((order, i) => {
      if (all[i].sides) mix({...order, until: Math.min(order.until, until)}, all[i].sides);
    });
    release(all);
    return to > told ? hand_over(to) : '';
  }
  // Frames one after the other. Once more for the same one: what has not come by now is not waited
  // for.
  let last = Promise.resolve();
  function hear(text, is_hurried) {
    if (is_hurried) hurry();
    return last = last.catch(() => '').then(() => hear_frame(text, is_hurried));
  }
  globalThis.thinternalSound = {hear, take_file};
)js";

}  // namespace pennywort::webdisplay::page_scripts
