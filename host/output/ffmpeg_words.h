// host/output/ffmpeg_words.h - looks through the options that a user adds to ffmpeg's.
#pragma once

#include <string>
#include <vector>

namespace pennywort::host {

// What is wrong with them, in one line; empty if nothing is. A word that is neither an option nor
// the value of one would be a file of its own to ffmpeg: the film would go there, and be another
// one than was asked for. Whether ffmpeg knows the options only ffmpeg can say.
std::string ffmpeg_words_complaint(const std::vector<std::string>& words);

}  // namespace pennywort::host
