// host/output/weaving_writer.h - makes one interlaced frame of each two frames.
#pragma once

#include <memory>

#include "host/output/frame_writer.h"

namespace pennywort::host {

// The lines 0, 2, 4, ... of the first frame are the top field, which is shown first; the lines
// 1, 3, 5, ... of the second one are the bottom field. Nothing is smoothed. A frame that is left
// over gives both fields.
class weaving_writer : public frame_writer {
public:
    explicit weaving_writer(std::unique_ptr<frame_writer> inner);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome hear(std::span<const float> samples) override;
    void other_has_failed() override { m_inner->other_has_failed(); }
    outcome finish() override;

private:
    picture_ptr woven(const picture& top, const picture& bottom);

    const std::unique_ptr<frame_writer> m_inner;
    std::unique_ptr<picture_pool> m_pool;  // made once the size is known
    picture_ptr m_top;
};

}  // namespace pennywort::host
