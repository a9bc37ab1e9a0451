// host/render/page_scripts.h - the scripts that a run asks its page with, and what their answers
// say. Each is the body of a function that returns a text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace pennywort::host {

// "name rest": whether the text is the answer of that name; `rest` is what stands behind it.
bool is_answer(const std::string& text, std::string_view name, std::string& rest);

// "http 404", "wait", "throws ..." or "ready".
std::string readiness_probe(const std::string& condition);
// The same of a page that need not be all there: only what the program has put into it.
std::string begun_probe(const std::string& condition);

// "wait" or "ready": whether the page has been through a few frames since it was first asked. What
// it had to show by then has reached the screen; a picture that comes before may still be that of
// the empty page.
extern const char* const k_frames_probe;

// Runs the user's script: "fine " and what it returns, or "throws ", its line and what it threw.
std::string run_of(const std::string& script);
// The place and the text of what is behind "throws ".
std::string thrown_text(const std::string& name, const std::string& rest);

// A page returns nothing for a script that it cannot parse, and tells nobody why. Asked with the
// script as a text it does: "fine", "blocked" where the page allows no such question, or the line
// and the message.
std::string parse_check(const std::string& script);
// What is wrong with the script by that answer, in one line; empty if nothing is. A script of no
// lines is an expression, which is told without a line.
std::string parse_fault(const std::string& name, std::int64_t lines, const std::string& answer);
std::int64_t line_count(const std::string& script);

}  // namespace pennywort::host
