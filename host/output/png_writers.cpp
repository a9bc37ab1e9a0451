// host/output/png_writers.cpp - see the header for the contract.
#include "host/output/png_writers.h"

#include <png.h>

#include <algorithm>
#include <filesystem>
#include <thread>
#include <utility>
#include <vector>

#include "host/output/byte_sink.h"
#include "host/output/output_file.h"
#include "host/output/pixels.h"
#include "host/system/file_path.h"

namespace pennywort::host {

namespace {

// The bytes of one file. libpng's simple interface reports a failure by its result; it leaves no
// jump to be caught.
outcome encode(png_image& image, const void* pixels, std::vector<std::uint8_t>& file) {
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    file.resize(size);
    if (!png_image_write_to_memory(&image, file.data(), &size, 0, pixels, 0, nullptr)) {
        return outcome::failed(std::string("cannot make a PNG: ") + image.message);
    }
    file.resize(size);
    return outcome::fine();
}

outcome encode(const picture& frame, bool transparent, png_effort effort,
               std::vector<std::uint8_t>& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(frame.width);
    image.height = static_cast<png_uint_32>(frame.height);
    image.flags = effort == png_effort::fast ? PNG_IMAGE_FLAG_FAST : 0;
    if (transparent) {
        image.format = PNG_FORMAT_BGRA;
        std::vector<std::uint32_t> straight(frame.pixel_count());
        unpremultiply(frame.pixels.get(), straight.data(), straight.size());
        return encode(image, straight.data(), file);
    }
    image.format = PNG_FORMAT_BGR;
    std::vector<std::uint8_t> opaque(frame.pixel_count() * 3);
    drop_alpha(frame.pixels.get(), opaque.data(), frame.pixel_count());
    return encode(image, opaque.data(), file);
}

// To wait for the disk after each file of a series would make it miss its frames.
outcome close(byte_sink& sink, png_effort effort) {
    return effort == png_effort::fast ? sink.close() : sink.close_on_disk();
}

outcome write_file(const std::string& path, const std::vector<std::uint8_t>& file,
                   png_effort effort) {
    byte_sink sink;
    if (const auto opened = sink.open(path); !opened.ok()) return opened;
    const auto written = sink.write(file.data(), file.size());
    const auto closed = close(sink, effort);
    return written.ok() ? closed : written;
}

}  // namespace

outcome write_png(const std::string& path, const picture& frame, bool transparent,
                  png_effort effort) {
    std::vector<std::uint8_t> file;
    if (const auto made = encode(frame, transparent, effort, file); !made.ok()) return made;
    const auto written = write_file(path, file, effort);
    if (!written.ok()) {
        // Half a picture is worse than none. What is no plain file (a device) is not ours to
        // remove.
        std::error_code ignored;
        if (std::filesystem::is_regular_file(file_path(path), ignored)) {
            std::filesystem::remove(file_path(path), ignored);
        }
    }
    return written;
}

png_writer::png_writer(std::string path, bool transparent)
    : m_path(std::move(path)), m_transparent(transparent) {}

outcome png_writer::begin() { return can_be_written(m_path); }

outcome png_writer::show(const picture_ptr& frame) {
    m_last = frame;
    return outcome::fine();
}

outcome png_writer::finish() {
    const picture_ptr last = std::move(m_last);
    if (!last) return outcome::fine();
    return write_png(m_path, *last, m_transparent, png_effort::small_file);
}

png_series_writer::png_series_writer(name_pattern pattern, bool transparent)
    : m_pattern(std::move(pattern)),
      m_transparent(transparent),
      m_at_once(std::max(2u, std::thread::hardware_concurrency())) {}

outcome png_series_writer::begin() { return can_be_written(m_pattern.name_of(m_number)); }

outcome png_series_writer::wait_until(std::size_t left) {
    while (m_under_way.size() > left) {
        const outcome result = m_under_way.front().get();
        m_under_way.pop_front();
        if (!result.ok()) return result;
    }
    return outcome::fine();
}

outcome png_series_writer::show(const picture_ptr& frame) {
    if (const auto waited = wait_until(m_at_once - 1); !waited.ok()) return waited;
    m_under_way.push_back(std::async(
        std::launch::async, [frame, path = m_pattern.name_of(m_number), clear = m_transparent] {
            return write_png(path, *frame, clear, png_effort::fast);
        }));
    ++m_number;
    return outcome::fine();
}

outcome png_series_writer::finish() { return wait_until(0); }

}  // namespace pennywort::host
