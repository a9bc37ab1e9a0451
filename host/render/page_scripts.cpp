// host/render/page_scripts.cpp - see the header for the contract.
#include "host/render/page_scripts.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "core/text/numbers.h"
#include "host/app/json.h"

namespace pennywort::host {

namespace {

// Scripts are handed over with one line of ours before their own.
constexpr std::int64_t k_lines_before = 1;

// A function of JavaScript: a value as a text. A browser's own text of an object says nothing of
// it; what no JSON can be keeps that.
const std::string k_text_of_value =
    "(value => {"
    "  const text = '' + value;"
    "  if (typeof value !== 'object' || !text.includes('[object Object]')) return text;"
    "  let json;"
    "  try { json = JSON.stringify(value); } catch (e) {}"
    "  if (typeof json !== 'string') return text;"
    "  return json.length > 2000 ? json.slice(0, 2000) + ' ...' : json;"
    "})";

constexpr std::string_view k_noise[] = {"Uncaught ", "Failed to execute 'appendChild' on 'Node': "};

struct place {
    std::int64_t line = 0;
    std::string text;
};

// "12 text", as the page counts the lines.
std::optional<place> place_in(const std::string& answer) {
    const auto blank = answer.find(' ');
    const auto line = text::whole<std::int64_t>(answer.substr(0, blank));
    if (blank == answer.npos || !line) return {};
    return place{*line - k_lines_before, answer.substr(blank + 1)};
}

std::string told_at(const std::string& name, const place& where) {
    const std::string line = where.line > 0 ? ":" + std::to_string(where.line) : "";
    return name + line + ": " + where.text;
}

void drop_each(std::string& text, std::string_view noise) {
    for (auto at = text.find(noise); at != text.npos; at = text.find(noise)) {
        text.erase(at, noise.size());
    }
}

}  // namespace

bool is_answer(const std::string& text, std::string_view name, std::string& rest) {
    if (text.substr(0, name.size()) != name) return false;
    rest = text.size() > name.size() ? text.substr(name.size() + 1) : std::string();
    return true;
}

// Style sheets in the page's own text arrive after the page has loaded; fonts load when the first
// text uses them.
std::string readiness_probe(const std::string& condition) {
    return "if (document.readyState !== 'complete') return 'wait';"
           "if (document.fonts && document.fonts.status !== 'loaded') return 'wait';" +
           begun_probe(condition);
}

std::string begun_probe(const std::string& condition) {
    return "const entry = performance.getEntriesByType('navigation')[0];"
           "if (entry && entry.responseStatus >= 400) return 'http ' + entry.responseStatus;"
           "for (const link of document.querySelectorAll('link[href^=\"data:text/css\"]'))"
           "  if (!link.sheet) return 'wait';"
           "try { return (" +
           condition + "\n) ? 'ready' : 'wait'; } catch (e) { return 'throws ' + " +
           k_text_of_value + "(e); }";
}

const char* const k_frames_probe =
    "const key = 'pennywort frames';"
    "if (!(key in window)) {"
    "  Object.defineProperty(window, key, {value: {count: 0}});"
    "  const next = () => { if (++window[key].count < 3) requestAnimationFrame(next); };"
    "  requestAnimationFrame(next);"
    "}"
    "return window[key].count < 3 ? 'wait' : 'ready';";

// The script stands behind one line, from which its own are counted.
std::string run_of(const std::string& script) {
    return "try { return 'fine ' + " + k_text_of_value + "((function () {\n" + script +
           "\n}).call(window)); } catch (e) {"
           "  const at = /\\n\\s+at .*?<anonymous>:(\\d+):/.exec(e && e.stack || '');"
           "  return 'throws ' + (at ? at[1] : 0) + ' ' + " +
           k_text_of_value + "(e); }";
}

std::string thrown_text(const std::string& name, const std::string& rest) {
    const auto where = place_in(rest);
    return where ? told_at(name, *where) : name + ": " + rest;
}

// Only an element's text is parsed with its lines counted and its faults told.
std::string parse_check(const std::string& script) {
    return "let told = '';"
           "const hear = e => {"
           "  told = e.lineno + ' ' + e.message; e.preventDefault(); e.stopImmediatePropagation();"
           "};"
           "addEventListener('error', hear, true);"
           "const before = onerror; onerror = null;"
           "try {"
           "  const tag = document.createElement('script');"
           "  tag.textContent = '(function () {\\n' + " +
           json_text(script) +
           " + '\\n});document.currentScript.passed = true;';"
           "  document.documentElement.appendChild(tag);"
           "  tag.remove();"
           "  if (!told && tag.passed) told = 'fine';"
           "} catch (e) {}"
           "removeEventListener('error', hear, true); onerror = before;"
           "return told || 'blocked';";
}

std::string parse_fault(const std::string& name, std::int64_t lines, const std::string& answer) {
    if (answer == "fine") return {};
    auto where = place_in(answer);
    if (!where) return name + " is no JavaScript; the page does not let it be said in which line";
    for (const auto noise : k_noise) drop_each(where->text, noise);
    // What is missing at the end is noticed behind it.
    where->line = std::min(where->line, lines);
    return told_at(name, *where);
}

std::int64_t line_count(const std::string& script) {
    const bool is_open = !script.empty() && script.back() != '\n';
    return std::count(script.begin(), script.end(), '\n') + (is_open ? 1 : 0);
}

}  // namespace pennywort::host
