// host/render/fast_forward.h - how a page lives through frames that nobody sees almost without
// being drawn: as a tiny picture.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

// Parameters of Emulation.setDeviceMetricsOverride for a page of that size. The page hears nothing
// of it.
std::string tiny_picture(long width, long height);

// Parameters of DOMSnapshot.captureSnapshot, for the next one.
extern const char* const k_drawing_snapshot;

// What in the page goes on looking as it was drawn first, and so as in the tiny picture; null where
// there is nothing. `snapshot` is the browser's answer; one that is none has nothing.
const char* kept_drawing(std::string_view snapshot);

}  // namespace pennywort::host
