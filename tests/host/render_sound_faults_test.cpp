// tests/host/render_sound_faults_test.cpp - the program on the real browser runtime: pages that
// want more of sounds than to play them, and outputs that want none.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/sound_fixture.h"

namespace pennywort::host {
namespace {

// Plays a tone from 0.5 s on and orders it once more for 2 s, past the browser. Looks meanwhile at
// whatever scripts can get hold of, and says what it has seen of samples.
constexpr const char* k_thief = R"html(<!doctype html><body><script>
const seen = new Set(), call = Reflect.apply, names = Object.getOwnPropertyNames;
const is_loud = value => { for (const one of value) if (one !== 0) return true; return false; };
function look(value, where) {
  if (value instanceof AudioBuffer) seen.add('a buffer by ' + where);
  else if (value instanceof ArrayBuffer) seen.add('bytes by ' + where);
  else if (ArrayBuffer.isView(value) && is_loud(value)) seen.add('samples by ' + where);
  else if (typeof value === 'string' && /^[0-9]+:[A-Za-z0-9+/]{8}/.test(value)) seen.add(where);
}
const then = Promise.prototype.then;
Promise.prototype.then = function (...given) {
  call(then, this, [value => look(value, 'then'), () => 0]);
  return call(then, this, given);
};
Promise.prototype.constructor = Object;
Object.defineProperty(Object.prototype, 'then', {configurable: true, get() {
  look(this, 'a thenable');
}});
const typed = Object.getPrototypeOf(Float32Array.prototype);
for (const proto of [typed, Uint8Array.prototype, AudioBuffer.prototype, Array.prototype]) {
  for (const name of names(proto)) {
    const own = Object.getOwnPropertyDescriptor(proto, name);
    if (name === 'constructor' || typeof own.value !== 'function') continue;
    Object.defineProperty(proto, name, {...own, value: function (...given) {
      look(this, name);
      const result = call(own.value, this, given);
      look(result, name);
      return result;
    }});
  }
}
for (const name of ['fetch', 'OfflineAudioContext', 'Float32Array', 'Uint8Array']) {
  self[name] = new Proxy(self[name], {apply(target, self, given) { return call(target, self, given); },
    construct(target, given, made) {
      given.forEach(one => look(one, name));
      return Reflect.construct(target, given, made);
    }});
}
const one = new Audio('tone.wav');
one.volume = 0.5;
setTimeout(() => one.play(), 500);
const run = {from: 0, begun: 96000, speed: 1, heard: 96000};
const made_up = {currentSrc: new URL('tone.wav', location).href, src: 'x', readyState: 4, volume: 0.5,
                 muted: false, duration: 1, playbackRate: 1, localName: 'audio', loop: false};
const reach = what => {
  try { return what(); } catch { return undefined; }
};
setTimeout(() => {
  const hub = self['thinternal sound'];
  reach(() => hub.join({self, place() {}, films: new Map([[made_up, run]])}));
  reach(() => hub.rouse());
}, 1900);
setInterval(() => {
  for (const name of names(self)) look(reach(() => self[name]), name);
  for (const name of names(run)) { look(run[name], name); for (const side of run[name]?.sides ?? [])
    look(side, name); }
  if (location.search) for (const until of [1e6, 2e6, 3e6]) {
    look(reach(() => self['thinternal films'](until, true)), 'a frame of its own');
  }
}, 100);
setTimeout(() => console.log('seen:', [...seen].join(', ') || 'nothing'), 2900);
</script>)html";

// Forty contexts, one each 100 ms, each for a sound of 20 ms.
constexpr const char* k_contexts = R"html(<!doctype html><body><script>
const all = [], closes = location.search === '?closes';
const timer = setInterval(() => {
  const context = new AudioContext(), sound = context.createConstantSource();
  sound.offset.value = 0.5;
  sound.connect(context.destination);
  sound.start();
  sound.stop(context.currentTime + 0.02);
  if (closes) sound.onended = () => context.close(); else all.push(context);
  if (++self.count === 40) clearInterval(timer);
}, 100);
self.count = 0;
</script>)html";

constexpr const char* k_server = R"python(
import http.server, threading
class Handler(http.server.SimpleHTTPRequestHandler):
    def do_GET(self):
        with open('asked', 'a') as log:
            log.write(self.path + ' by ' + self.headers.get('Sec-Fetch-Dest', '') + '\n')
        if self.path == '/hangs.wav':
            threading.Event().wait()
        super().do_GET()
    def end_headers(self):
        self.send_header('Cache-Control', 'no-store')
        super().end_headers()
    def log_message(self, *args):
        pass
server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Handler)
server.daemon_threads = True
print(server.server_address[1], flush=True)
server.serve_forever()
)python";

// Says so if anybody waits for its sound to come.
constexpr const char* k_waiting = R"html(<!doctype html><body><script>
onload = () => {
  const one = new Audio('hangs.wav'), listen = one.addEventListener;
  one.addEventListener = function (name, ...more) {
    if (name === 'loadedmetadata') console.log('waited for');
    return Reflect.apply(listen, this, [name, ...more]);
  };
  one.play();
};
</script>)html";

TEST_F(ExactFilmSound, NoScriptOfThePageGetsItsSamples) {
    folder.write("thief.html", k_thief);
    for (const char* page : {"thief.html", "'thief.html?frames'"}) {
        const auto run = folder.run(std::string("pennywort render ") + page +
                                    " --size 16x16 --seconds 3 --verbose -o a.wav");
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_NE(run.errors.find("seen: nothing"), std::string::npos) << run.errors;
        if (std::string(page) != "thief.html") continue;
        const auto samples = heard("a.wav");
        EXPECT_EQ(sounding(samples), (spans{{24'000, 72'000}, {96'000, 144'000}}))
            << "it is heard all the same";
    }
}

TEST_F(ExactFilmSound, ManyContextsAreHeardToTheSample) {
    folder.write("contexts.html", k_contexts);
    spans wanted;
    for (std::size_t n = 1; n <= 40; ++n) wanted.push_back({n * 4800, n * 4800 + 960});
    for (const char* page : {"contexts.html", "'contexts.html?closes'"}) {
        const auto run = folder.run(std::string("pennywort render ") + page +
                                    " --size 16x16 --seconds 5 -o a.wav");
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.errors.find("sound"), std::string::npos) << run.errors;
        const auto samples = heard("a.wav");
        EXPECT_EQ(sounding(samples), wanted) << page;
        for (const auto& [from, until] : sounding(samples)) {
            for (std::size_t i = from; i < until; ++i) ASSERT_EQ(samples[i], 0.5f) << i;
        }
    }
}

TEST_F(ExactFilmSound, AnOutputWithoutSoundFetchesNoneAndWaitsForNone) {
    folder.write("server.py", k_server);
    folder.write("waiting.html", k_waiting);
    const auto run = served(
        "film=\"pennywort render $at/player.html?src=tone.wav --size 16x16 --seconds 1\"\n"
        "$film -o a.y4m && $film -o a.png && $film --mute -o a.mkv && cp asked before\n"
        "$film -o a.mkv &&\n"
        "pennywort render $at/waiting.html --size 16x16 --verbose -o a.png");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("the page has sound, and a.y4m holds none"), std::string::npos)
        << run.errors;
    EXPECT_NE(folder.read("before").find("/tone.wav by audio"), std::string::npos);
    EXPECT_EQ(folder.read("before").find("/tone.wav by empty"), std::string::npos);
    EXPECT_NE(folder.read("asked").find("/tone.wav by empty"), std::string::npos)
        << "the film with sound reads it as a whole";
    EXPECT_EQ(run.errors.find("waited for"), std::string::npos) << run.errors;
}

}  // namespace
}  // namespace pennywort::host
