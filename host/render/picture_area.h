// host/render/picture_area.h - finds the part of a page that a picture is to show, where that is
// not the size that the page was given: all of the page, or one element of it.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace pennywort::host {

struct picture_size {
    long width = 0, height = 0;
};

// What finding an area needs of the display that shows the page.
class area_port {
public:
    virtual ~area_port() = default;

    // The value of an expression in the page; empty where it has none.
    virtual void ask_page(const std::string& expression,
                          std::function<void(const std::string&)> answer) = 0;
    // Gives the page another size.
    virtual void resize_page(long width, long height) = 0;
    // One frame that is no output frame. False if it has failed.
    virtual void show_unseen(std::function<void(bool is_there)> told) = 0;
    // The size of the last picture, if that was of a page of this size. The browser rounds it in
    // its own way where the scale makes it no whole number of pixels.
    virtual std::optional<picture_size> picture_of(long width, long height) const = 0;
};

// In pixels of the page.
struct page_area {
    double x = 0, y = 0, width = 0, height = 0;
};

// In pixels of the picture of the whole page.
struct pixel_area {
    long x = 0, y = 0, width = 0, height = 0;
    friend bool operator==(const pixel_area&, const pixel_area&) = default;
};

struct area_wish {
    std::string element;  // a selector; empty: the whole page
    long width = 0;       // of the page, as it was asked for
    long height = 0;
    double scale = 1;
};

// What the page is asked, and what its answer says: "none" where it has no such element.
std::string area_question(const std::string& selector);
std::optional<page_area> area_of(const std::string& answer);
// Every pixel that the area touches, as far as the page's picture goes.
pixel_area pixels_of(const page_area& area, const picture_size& picture, double scale);

// All on the display thread. Answers that come when it has gone are the port's to drop.
class area_finder {
public:
    area_finder(area_port& port, area_wish wish);

    void begin();
    bool is_over() const { return m_is_found || !m_failure.empty(); }
    // Why there is none, in one line; empty while there may be one.
    const std::string& failure() const { return m_failure; }
    const pixel_area& area() const { return m_area; }
    // The page's, which may have grown for it.
    picture_size window() const { return {m_width, m_height}; }
    // What of it is not as the user would expect, in one line; mostly empty.
    const std::string& note() const { return m_note; }

private:
    void take_first(const std::string& answer);
    void show_larger(int shown);
    void shown_larger(int shown, bool is_there);
    void take_second(const std::string& answer);
    void found(const page_area& area);
    void look_whether_it_grew(const page_area& now);
    bool fits(const page_area& area);
    std::string asked_for() const;

    area_port& m_port;
    const area_wish m_wish;
    long m_width;
    long m_height;
    picture_size m_picture;
    page_area m_first;  // in the page's own window
    bool m_is_found = false;
    pixel_area m_area;
    std::string m_failure;
    std::string m_note;
};

}  // namespace pennywort::host
