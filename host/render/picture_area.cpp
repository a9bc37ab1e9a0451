// host/render/picture_area.cpp - see the header for the contract.
#include "host/render/picture_area.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include "core/limits.h"
#include "host/app/json.h"

namespace pennywort::host {

namespace {

// A page has its new size with its next picture or the one behind it.
constexpr int k_most_unseen = 50;

// Places in a page are multiples of 1/64 of its pixels. What lies closer to a pixel's edge than
// this has come there by the rounding of the scale.
constexpr double k_no_pixel = 1e-3;

long first_pixel(double edge, long most) {
    return static_cast<long>(std::clamp(std::floor(edge + k_no_pixel), 0.0, double(most)));
}
long end_pixel(double edge, long most) {
    return static_cast<long>(std::clamp(std::ceil(edge - k_no_pixel), 0.0, double(most)));
}

std::string whole_text(double value) {
    return std::to_string(std::llround(std::ceil(std::min(value, 1e15))));
}

std::string size_text(const page_area& area) {
    return whole_text(area.width) + "x" + whole_text(area.height);
}

}  // namespace

std::string area_question(const std::string& selector) {
    if (selector.empty()) {
        return "(() => { const all = document.documentElement, body = document.body || all;"
               "return [0, 0, Math.max(all.scrollWidth, body.scrollWidth),"
               "Math.max(all.scrollHeight, body.scrollHeight)].join(' '); })()";
    }
    return "(() => { const found = document.querySelector(" + json_text(selector) +
           "); if (!found) return 'none'; const box = found.getBoundingClientRect();"
           "return [box.x + scrollX, box.y + scrollY, box.width, box.height].join(' '); })()";
}

std::optional<page_area> area_of(const std::string& answer) {
    std::istringstream in(answer);
    in.imbue(std::locale::classic());
    page_area area;
    if (!(in >> area.x >> area.y >> area.width >> area.height) || !in.eof()) return {};
    return area;
}

pixel_area pixels_of(const page_area& area, const picture_size& picture, double scale) {
    pixel_area pixels;
    pixels.x = first_pixel(area.x * scale, picture.width);
    pixels.y = first_pixel(area.y * scale, picture.height);
    pixels.width = end_pixel((area.x + area.width) * scale, picture.width) - pixels.x;
    pixels.height = end_pixel((area.y + area.height) * scale, picture.height) - pixels.y;
    return pixels;
}

// The page's first picture has whole pixels.
area_finder::area_finder(area_port& port, area_wish wish)
    : m_port(port),
      m_wish(std::move(wish)),
      m_width(m_wish.width),
      m_height(m_wish.height),
      m_picture{std::lround(static_cast<double>(m_width) * m_wish.scale),
                std::lround(static_cast<double>(m_height) * m_wish.scale)} {}

std::string area_finder::asked_for() const {
    return m_wish.element.empty() ? "--full-page" : "--element " + m_wish.element;
}

void area_finder::begin() {
    m_port.ask_page(area_question(m_wish.element),
                    [this](const std::string& answer) { take_first(answer); });
}

bool area_finder::fits(const page_area& area) {
    const double right = (area.x + area.width) * m_wish.scale;
    const double below = (area.y + area.height) * m_wish.scale;
    if (right <= k_max_view_side && below <= k_max_view_side) return true;
    m_failure = asked_for() + ": it would be " + whole_text(right) + "x" + whole_text(below) +
                " pixels, and a page has at most " + std::to_string(k_max_view_side) + " each way";
    return false;
}

void area_finder::take_first(const std::string& answer) {
    const auto area = area_of(answer);
    if (!area && answer == "none") {
        m_failure = asked_for() + ": the page has no such element";
    } else if (!area) {
        m_failure = asked_for() + ": that is no selector, or the page does not answer";
    }
    if (!area || !fits(*area)) return;
    const long right = static_cast<long>(std::ceil(area->x + area->width));
    const long below = static_cast<long>(std::ceil(area->y + area->height));
    if (right <= m_width && below <= m_height) return found(*area);
    m_first = *area;
    m_width = std::max(m_width, right);
    m_height = std::max(m_height, below);
    m_port.resize_page(m_width, m_height);
    show_larger(0);
}

void area_finder::show_larger(int shown) {
    m_port.show_unseen([this, shown](bool is_there) { shown_larger(shown, is_there); });
}

void area_finder::shown_larger(int shown, bool is_there) {
    if (!is_there || shown >= k_most_unseen) {
        m_failure = asked_for() + ": the page does not take the size that it needs";
        return;
    }
    const auto picture = m_port.picture_of(m_width, m_height);
    if (!picture) return show_larger(shown + 1);
    m_picture = *picture;
    m_port.ask_page(area_question(m_wish.element),
                    [this](const std::string& again) { take_second(again); });
}

// A page whose heights follow its window is higher now; what it was asked for first holds.
void area_finder::take_second(const std::string& answer) {
    const auto area = area_of(answer);
    if (area) look_whether_it_grew(*area);
    if (m_wish.element.empty()) {
        return found({0, 0, static_cast<double>(m_width), static_cast<double>(m_height)});
    }
    if (!area) {
        m_failure = asked_for() + ": it has gone from the page";
        return;
    }
    found(*area);
}

void area_finder::look_whether_it_grew(const page_area& now) {
    constexpr double k_least = 1;
    const double wider = now.width - m_first.width, higher = now.height - m_first.height;
    if (std::abs(wider) < k_least && std::abs(higher) < k_least) return;
    m_note =
        asked_for() + ": it was " + size_text(m_first) + " and is " + size_text(now) +
        " in the larger window that its picture needs, since its sizes follow that (as vh does)";
    if (m_wish.element.empty() && higher > 0)
        m_note += "; the picture ends at " + size_text(m_first);
}

void area_finder::found(const page_area& area) {
    m_area = pixels_of(area, m_picture, m_wish.scale);
    m_is_found = m_area.width > 0 && m_area.height > 0;
    if (!m_is_found) m_failure = asked_for() + ": it has no area that could be shown";
    if (!m_is_found && !m_note.empty()) m_failure = std::exchange(m_note, {});
}

}  // namespace pennywort::host
