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
    {"WebSocket", "clock: a WebSocket: its messages come at no certain frame"},
    {"EventSource", "clock: an EventSource: its messages come at no certain frame"},
    {"WebTransport", "clock: WebTransport: what it brings comes at no certain frame"},
    {"RTCPeerConnection", "clock: WebRTC: what it brings comes at no certain frame"},
};

}  // namespace

const char* const k_clock_watch = R"js((() => {
  const tell = self.thinternalClock, make = Reflect.construct;
  if (!tell) return;
  delete self.thinternalClock;
  const told = new Set();
  for (const name of ['Worker', 'WebSocket', 'EventSource', 'WebTransport',
                      'RTCPeerConnection']) {
    const own = self[name];
    if (!own) continue;
    const watched = new Proxy(own, {construct(target, given, made) {
      if (!told.has(name)) {
        told.add(name);
        tell(name);
      }
      return make(target, given, made === watched ? target : made);
    }});
    own.prototype.constructor = watched;
    Object.defineProperty(self, name, {value: watched, writable: true, configurable: true});
  }
})();)js";

std::optional<std::string> clock_fault(std::string_view payload) {
    for (const auto& [name, line] : k_faults) {
        if (payload == name) return line;
    }
    return {};
}

}  // namespace pennywort::host
