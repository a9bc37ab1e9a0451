// host/output/key_writer.h - writes two films of one page: its colour, and its alpha as grey.
#pragma once

#include <memory>

#include "host/output/frame_writer.h"

namespace pennywort::host {

// The fill is the page over black, its colour multiplied by alpha as painted; the key is white
// where the page is opaque and black where nothing is. Frame by frame the two belong together.
class key_writer : public frame_writer {
public:
    // Both of opaque formats; only the fill's may have sound.
    key_writer(std::unique_ptr<frame_writer> fill, std::unique_ptr<frame_writer> key);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    // The sound belongs to the fill.
    outcome hear(std::span<const float> samples) override;
    void other_has_failed() override;
    // Completes both, whatever became of one of them. After a failure of one neither takes the
    // place of a file that was there.
    outcome finish() override;

private:
    picture_ptr key_of(const picture_ptr& frame);
    outcome of_fill(outcome result);
    outcome of_key(outcome result);
    outcome beside(outcome result, frame_writer& other);

    const std::unique_ptr<frame_writer> m_fill;
    const std::unique_ptr<frame_writer> m_key;
    std::unique_ptr<picture_pool> m_pool;  // made once the size is known
    picture_ptr m_source;                  // what m_grey was made of
    picture_ptr m_grey;
    bool m_has_failed = false;
};

}  // namespace pennywort::host
