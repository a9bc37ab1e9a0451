// fault_words.h - why there is no connection any more, in the words that both systems have for it.
#pragma once

namespace pennywort::websocket {

inline constexpr char k_unknown_host[] = "the host is not found";
inline constexpr char k_nobody_listens[] = "nobody listens there";
inline constexpr char k_no_way[] = "there is no way to the host";
inline constexpr char k_no_connection[] = "no connection";
inline constexpr char k_no_tls[] = "no agreement on TLS";
inline constexpr char k_bad_certificate[] = "the server's certificate is not accepted";
inline constexpr char k_silent[] = "the server is silent";
inline constexpr char k_no_goodbye[] = "the connection ended without a goodbye";
inline constexpr char k_server_answers[] = "the server answers ";  // with that status

}  // namespace pennywort::websocket
