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

// What becomes of each context that may be asked for, as the browser has it or we in its place.
constexpr const char* k_refusing_page = R"html(<!doctype html><body><script>
const wishes = ['', '5', '"x"', 'null', '[]', '{}', '{sampleRate: 1}', '{sampleRate: 2999}',
  '{sampleRate: 3000}', '{sampleRate: 768000}', '{sampleRate: 768001}', '{sampleRate: NaN}',
  '{sampleRate: 1e39}', '{sampleRate: null}', '{sampleRate: "44100"}', '{sampleRate: "x"}',
  '{sampleRate: Symbol()}', '{sampleRate: 5n}', '{latencyHint: "playback"}', '{latencyHint: 0.1}',
  '{latencyHint: "soon"}', '{latencyHint: null}', '{latencyHint: NaN}', '{latencyHint: "0.1"}',
  '{sinkId: ""}', '{sinkId: {type: "none"}}', '{sinkId: {type: "x"}}', '{sinkId: {}}',
  '{sinkId: null}', '{latencyHint: "soon", sampleRate: 1}',
  '{get sampleRate() { throw new RangeError("mine"); }}'];
class Mine extends AudioContext { constructor() { super({sampleRate: 1}); } }
const all = wishes.map(wish => [wish, () => eval('new AudioContext(' + wish + ')')]);
all.push(['called', () => AudioContext()], ['extended', () => new Mine()]);
for (const [name, make] of all) {
  let became;
  try {
    const context = make();
    became = String(context) + ' ' + AudioContext.length + AudioContext.name;
    context.close();
  } catch (error) {
    became = error.constructor.name + ' ' + error.name;
    if (error.name === 'NotSupportedError') became += ' ' + error.message;
  }
  console.log('asked for', name, became);
}
</script>)html";

// 131 contexts at once, of a 256th each.
constexpr const char* k_crowd = R"html(<!doctype html><body><script>
const all = [];
for (let i = 0; i < 131; ++i) {
  const context = new AudioContext(), sound = context.createConstantSource();
  sound.offset.value = 1 / 256;
  sound.connect(context.destination);
  sound.start();
  all.push(context);
}
setTimeout(() => console.log('the last:', all.at(-1).state, all.at(-1).currentTime > 0.09), 100);
</script>)html";

// Contexts that cannot be had in their full length, or that fail while they are heard.
constexpr const char* k_small_browser = R"html(<!doctype html><body><script>
let looks = 0;
const once = new Proxy(AudioContext, {get(target, name) {
  if (name === 'prototype' && ++looks === 2) throw new RangeError('no memory');
  return target[name];
}});
const context = location.search === '?failing' ? new AudioContext() : new once();
const sound = context.createConstantSource();
sound.connect(context.destination);
sound.start();
if (location.search === '?failing') {
  const suspend = OfflineAudioContext.prototype.suspend;
  for (let i = 1; i < 400; ++i) suspend.call(context, i * 128 / 48000).catch(() => 0);
}
console.log('made:', context.state);
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

// Plays the same piece of two long files and of the first again, a quarter of a second each, and
// before the second and the third a short one. With "?blobs" a script has fetched them, and takes
// back their names when each has been heard.
constexpr const char* k_albums = R"html(<!doctype html><body><script>
const is_blob = location.search === '?blobs', names = {};
async function name_of(file) {
  if (!is_blob) return file;
  return URL.createObjectURL(await (await fetch(file)).blob());
}
function play(name, at) {
  const one = new Audio(names[name]);
  setTimeout(() => one.play(), at);
  setTimeout(() => one.pause(), at + 250);
  return one;
}
(async () => {
  for (const one of ['a', 'b', 'tone']) names[one] = await name_of(one + '.wav');
  const first = play('a', 500), again = play('a', 2000);
  play('tone', 1000); play('b', 1500); play('tone', 2500);
  if (is_blob) setTimeout(() => Object.values(names).map(URL.revokeObjectURL), 1750);
})();
</script>)html";

// Films, sounds and a context; with a question in its address, first something is put in the place
// of what scripts are made of.
constexpr const char* k_bent = R"html(<!doctype html><style>body{margin:0}</style><script>
const bends = {
  '?promises': () => {
    for (const name of ['all', 'race', 'resolve']) Promise[name] = () => new Promise(() => 0);
    for (const name of ['catch', 'finally']) Promise.prototype[name] = () => { throw name; };
  },
  '?then': () => { Object.prototype.then = function () {}; },
  '?numbers': () => {
    for (const name of ['floor', 'round', 'max', 'min', 'abs']) Math[name] = () => NaN;
    self.isFinite = () => false;
    JSON.stringify = () => '';
  }
};
bends[location.search]?.();
const one = new Audio('tone.wav'), context = new AudioContext();
setTimeout(() => one.play(), 200);
const sound = context.createConstantSource();
sound.offset.value = 0.25;
sound.connect(context.destination);
sound.start(1.5);
sound.stop(1.6);
</script><video src=film.webm autoplay muted></video>)html";

TEST_F(ExactFilmSound, WhatAPageReplacesIsNotWhatItsFilmIsMadeBy) {
    folder.write("bent.html", k_bent);
    const auto run = folder.run(
        "ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=25:d=2 -c:v libvpx film.webm\n"
        "for bent in '' '?promises' '?then' '?numbers'; do\n"
        "film=\"pennywort render bent.html$bent --size 64x48 --fps 25 --seconds 2\"\n"
        "$film -o \"a$bent.wav\" && $film --mute -o \"a$bent.bgra\" &&\n"
        "cmp a.wav \"a$bent.wav\" && cmp a.bgra \"a$bent.bgra\" || exit; done");
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(run.errors.find("sound:"), std::string::npos) << run.errors;
    const spans wanted{{9'600, 57'600}, {72'000, 76'800}};
    EXPECT_EQ(sounding(heard("a.wav")), wanted);
}

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

TEST_F(ExactFilmSound, ContextsAreRefusedToThePageAsTheBrowserDoes) {
    folder.write("refusals.html", k_refusing_page);
    const auto run = folder.run(
        "film='pennywort render refusals.html --size 16x16 --frames 2 --verbose'\n"
        "$film --live -o a.wav 2>&1 | grep -o 'asked for.*' > live\n"
        "$film -o a.wav 2>&1 | grep -o 'asked for.*' > exact\n"
        "grep -c NotSupportedError live; diff live exact");
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(run.output, "5\n");
}

TEST_F(ExactFilmSound, OfMoreContextsThanCanBeHeardTheOthersAreTold) {
    folder.write("crowd.html", k_crowd);
    const auto run =
        folder.run("pennywort render crowd.html --size 16x16 --frames 15 --verbose -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    const std::string line =
        "page: sound: of more than 128 AudioContexts at once the further ones are not heard\n";
    const auto at = run.errors.find(line);
    EXPECT_NE(at, std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find(line, at + 1), std::string::npos) << "once";
    EXPECT_NE(run.errors.find("the last: running true"), std::string::npos) << run.errors;
    EXPECT_EQ(heard("a.wav").at(9600), 0.5f) << "128 of them";
}

TEST_F(ExactFilmSound, AContextThatTheBrowserHasNoRoomForIsTold) {
    folder.write("small.html", k_small_browser);
    for (const char* page : {"small.html", "'small.html?failing'"}) {
        const auto run = folder.run(std::string("pennywort render ") + page +
                                    " --size 16x16 --frames 5 --verbose -o a.wav");
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_NE(run.errors.find("page: sound: this browser has no room for one more "
                                  "AudioContext, which is not heard\n"),
                  std::string::npos)
            << page << run.errors;
        EXPECT_NE(run.errors.find("made: running"), std::string::npos) << run.errors;
    }
}

class LongSounds : public ExactFilmSound {
protected:
    LongSounds() {
        folder.write("albums.html", k_albums);
        folder.write("server.py", k_server);
        folder.run(
            "for name in a b; do ffmpeg -v error -f lavfi -i sine=frequency=300:sample_rate=48000:"
            "duration=400 -ac 2 -c:a pcm_u8 $name.wav; done");
    }
    // The samples of the first, the second and the third that is played of the long ones.
    std::vector<std::vector<float>> played(const std::string& page) {
        const auto run = served("pennywort render \"$at/" + page +
                                "\" --size 16x16 --seconds 3 -o a.mkv --codec ffv1");
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.errors.find("sound"), std::string::npos) << run.errors;
        const auto samples = heard("a.mkv");
        std::vector<std::vector<float>> found;
        for (const auto& [from, until] : sounding(samples)) {
            const auto at = samples.begin();
            found.emplace_back(at + static_cast<std::ptrdiff_t>(from),
                               at + static_cast<std::ptrdiff_t>(until));
        }
        EXPECT_EQ(found.size(), 5u);
        found.resize(5);
        return {found[0], found[2], found[3]};
    }
    int asked_for(const std::string& file) const {
        const std::string log = folder.read("asked"), line = "/" + file + " by empty\n";
        int count = 0;
        for (auto at = log.find(line); at != log.npos; at = log.find(line, at + 1)) ++count;
        return count;
    }
};

// 154 MB of samples each.
TEST_F(LongSounds, AreReleasedAndHeardAgain) {
    const auto all = played("albums.html");
    EXPECT_GT(all[0].size(), 11'000u);
    EXPECT_EQ(all[0], all[1]);
    EXPECT_EQ(all[0], all[2]);
    EXPECT_EQ(asked_for("a.wav"), 2) << "the first went when the second came";
    EXPECT_EQ(asked_for("b.wav"), 1);
    EXPECT_EQ(asked_for("tone.wav"), 1) << "there was room for it";
}

TEST_F(LongSounds, OfAScriptAreHeardAgainAlthoughTheirNamesAreGone) {
    const auto all = played("albums.html?blobs");
    EXPECT_GT(all[0].size(), 11'000u);
    EXPECT_EQ(all[0], all[2]);
}

TEST_F(ExactFilmSound, ThatLacksMoreThanCanBeToldSaysSo) {
    folder.write("missing.html",
                 "<!doctype html><body><script>for (let i = 0; i < 25; ++i)"
                 "{ new Audio('nosuch' + i + '.wav').play().catch(() => 0);"
                 "setTimeout(() => { throw Error(i) }, 0); }</script>");
    const auto run = folder.run("pennywort render missing.html --size 16x16 --frames 9 -o a.wav");
    EXPECT_EQ(run.status, 0) << run.errors;
    const std::string line = ".wav is not in the film: ";
    int count = 0;
    for (auto at = run.errors.find(line); at != std::string::npos;
         at = run.errors.find(line, at + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 20) << run.errors;
    EXPECT_NE(run.errors.find("page: sound: more is not in the film than can be told\n"),
              std::string::npos)
        << run.errors;
}

}  // namespace
}  // namespace pennywort::host
