// websocket/class_names.h - how each class names itself at the beginning of its traces.
#pragma once

namespace pennywort::websocket {

inline constexpr char k_class_base[] = "cWebSocket";
inline constexpr char k_class_sharp[] = "cWebSocket_Sharp";
inline constexpr char k_class_winhttp[] = "cWebSocket_WinHttp";

}  // namespace pennywort::websocket
