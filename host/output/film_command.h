// host/output/film_command.h - what ffmpeg is started with, for each kind of film and picture.
#pragma once

#include <string>
#include <vector>

#include "host/output/frame_writer.h"
#include "host/output/output_target.h"

namespace pennywort::host {

// The name of what ffmpeg reports on its standard error, among other things: the frames that it has
// written so far.
constexpr const char* k_film_report = "frame";

// `program` and its arguments; it reads the frames as BGRA from its standard input, or a
// film with sound as the Matroska stream of both. Films are
// BT.709 in the limited range and say so, but for FFV1 and GIF, which keep RGB, and pictures, whose
// formats have a matrix of their own. film_complaint has found nothing wrong with the format.
std::vector<std::string> film_command(const std::string& program, const output_target& target,
                                      const frame_format& format);

// The same for one small frame, made with everything that the film needs, and thrown away.
std::vector<std::string> film_trial_command(const std::string& program, const output_target& target,
                                            const frame_format& format);

// What it gets on its standard input.
std::string film_trial_frame(const frame_format& format);

}  // namespace pennywort::host
