#pragma once

#include <string>
#include <string_view>

namespace bench {

inline constexpr int many_results = 17;

/// What a program in the middle receives, and the last that it publishes for it, with one result and with
/// `many_results`.
inline constexpr const char* single_request_topic = "rt/system/rtc_ee";
inline constexpr const char* single_result_topic = "system/var/serialnumber";
inline constexpr const char* group_request_topic = "rt/system/hw_properties";
inline constexpr const char* last_result_topic = "system/var/hasextsim";

/// Programs that one would write by hand in the place of the daemon.
/// Publishes constants from the callback of the library.
inline constexpr std::string_view inline_echo = "inline";
/// Parses the request and serialises each result there, too.
inline constexpr std::string_view working_echo = "work";
/// Publishes constants after reading all that waits, with TCP_CORK.
inline constexpr std::string_view batching_echo = "batch";

/// Runs one of these programs until the process ends. A `host` that begins with "/" is the path of a socket.
void run_echo(std::string_view kind, const std::string& host, int port, int results);

}  // namespace bench
