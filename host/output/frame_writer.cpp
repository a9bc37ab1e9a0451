// host/output/frame_writer.cpp - picks the writer for a kind of output.
#include "host/output/frame_writer.h"

#include <chrono>
#include <utility>

#include "core/limits.h"
#include "host/output/key_writer.h"
#include "host/output/matroska_writer.h"
#include "host/output/movie_writer.h"
#include "host/output/output_target.h"
#include "host/output/png_writers.h"
#include "host/output/replacing_writer.h"
#include "host/output/still_writer.h"
#include "host/output/stream_writers.h"
#include "host/output/wav_writer.h"
#include "host/output/weaving_writer.h"

namespace pennywort::host {

namespace {

sink_opener opener_of(const output_target& target, std::FILE* standard_output) {
    if (!target.to_standard_output()) {
        return [path = target.path](byte_sink& sink) { return sink.open(path); };
    }
    return [standard_output](byte_sink& sink) {
        sink.use(standard_output, "standard output");
        return outcome::fine();
    };
}

// Writes to the very name that the target has.
std::unique_ptr<frame_writer> make_plain_writer(const output_target& target,
                                                const frame_format& format,
                                                std::FILE* standard_output) {
    switch (target.kind) {
        case output_kind::png:
            return std::make_unique<png_writer>(target.path, format.transparent);
        case output_kind::png_series:
            return std::make_unique<png_series_writer>(*target.pattern, format.transparent);
        case output_kind::y4m:
            return std::make_unique<y4m_writer>(format, opener_of(target, standard_output));
        case output_kind::matroska:
            return std::make_unique<matroska_writer>(format, opener_of(target, standard_output));
        case output_kind::wav:
            return std::make_unique<wav_writer>(target.path);
        case output_kind::raw:
        case output_kind::none:
            return std::make_unique<raw_writer>(opener_of(target, standard_output));
        default:
            break;
    }
    auto movie = std::make_unique<movie_writer>(target, format);
    if (!is_single_picture(target.kind)) return movie;
    return std::make_unique<still_writer>(std::move(movie), target.path);
}

}  // namespace

// The pictures of a series are each whole on their own.
std::unique_ptr<frame_writer> make_frame_writer(const output_target& target,
                                                const frame_format& format,
                                                std::FILE* standard_output) {
    if (is_series(target.kind) || target.to_standard_output()) {
        return make_plain_writer(target, format, standard_output);
    }
    return std::make_unique<replacing_writer>(
        target, [format, standard_output](const output_target& made) {
            return make_plain_writer(made, format, standard_output);
        });
}

frame_format film_format_of(const frame_format& page) {
    frame_format film = page;
    if (page.is_interlaced) film.rate = page.rate.halved();
    return film;
}

std::unique_ptr<frame_writer> make_page_writer(const output_target& output,
                                               const output_target* key, const frame_format& page,
                                               std::FILE* standard_output) {
    frame_format film = film_format_of(page);
    film.transparent = page.transparent && key == nullptr;
    auto writer = make_frame_writer(output, film, standard_output);
    if (key != nullptr) {
        film.has_sound = false;
        auto key_film = make_frame_writer(*key, film, standard_output);
        writer = std::make_unique<key_writer>(std::move(writer), std::move(key_film));
    }
    if (page.is_interlaced) writer = std::make_unique<weaving_writer>(std::move(writer));
    return writer;
}

}  // namespace pennywort::host
