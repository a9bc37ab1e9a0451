// host/render/clock_fault.cpp - see the header for the contract.
#include "host/render/clock_fault.h"

namespace pennywort::host {

namespace {

struct fault_row {
    std::string_view name;  // as the script has it
    const char* line;
};
constexpr fault_row k_faults[] = {
    {"Worker",
     "clock: a worker: its messages come up to three frames late, and requestAnimationFrame in it "
     "does not come"},
    {"SharedWorker", "clock: a SharedWorker: its messages come up to three frames late"},
    {"ServiceWorker", "clock: a service worker: its messages come up to three frames late"},
    {"MediaStream",
     "clock: a <video> of a stream (srcObject): its picture comes at no certain frame"},
    {"WebSocket", "clock: a WebSocket: its messages come at no certain frame"},
    {"EventSource", "clock: an EventSource: its messages come at no certain frame"},
    {"BroadcastChannel", "clock: a BroadcastChannel: its messages come at no certain frame"},
    {"WebTransport", "clock: WebTransport: what it brings comes at no certain frame"},
    {"RTCPeerConnection", "clock: WebRTC: what it brings comes at no certain frame"},
};

}  // namespace

const char* const k_clock_watch = R"js((() => {
  const tell = self.thinternalClock, make = Reflect.construct;
  if (!tell) return;
  delete self.thinternalClock;
  const told = new Set(), call = Reflect.apply;
  const once = name => {
    if (told.has(name)) return;
    told.add(name);
    tell(name);
  };
  for (const name of ['Worker', 'SharedWorker', 'WebSocket', 'EventSource', 'BroadcastChannel',
                      'WebTransport', 'RTCPeerConnection']) {
    const own = self[name];
    if (!own) continue;
    const watched = new Proxy(own, {construct(target, given, made) {
      once(name);
      return make(target, given, made === watched ? target : made);
    }});
    own.prototype.constructor = watched;
    Object.defineProperty(self, name, {value: watched, writable: true, configurable: true});
  }
  const media = HTMLMediaElement.prototype;
  const source = Object.getOwnPropertyDescriptor(media, 'srcObject');
  Object.defineProperty(media, 'srcObject', {...source, set(given) {
    if (this instanceof HTMLVideoElement && given instanceof MediaStream) once('MediaStream');
    call(source.set, this, [given]);
  }});
  const move = ({target: film, type}) => {
    if (!(film instanceof HTMLVideoElement) || film.srcObject || film.readyState < 1) return;
    if (film.paused && !film.autoplay && type !== 'seeking') return;
    const {seekable} = film, end = seekable.length > 0 ? seekable.end(seekable.length - 1) : 0;
    if (end < film.duration) once('Unseekable ' + film.currentSrc);
  };
  for (const type of ['loadedmetadata', 'play', 'seeking']) addEventListener(type, move, true);
  if (!self.ServiceWorkerContainer) return;
  const container = ServiceWorkerContainer.prototype, register = container.register;
  container.register = function (...given) {
    once('ServiceWorker');
    return call(register, this, given);
  };
})();)js";

std::optional<std::string> clock_fault(std::string_view payload) {
    for (const auto& [name, line] : k_faults) {
        if (payload == name) return line;
    }
    return {};
}

std::optional<std::string> still_film_fault(std::string_view payload) {
    constexpr std::string_view k_name = "Unseekable ";
    if (!payload.starts_with(k_name)) return {};
    return std::string(payload.substr(k_name.size(), 500)) +
           ": its server sends no ranges of bytes, so that it cannot be put to a moment, and "
           "stands still";
}

}  // namespace pennywort::host
