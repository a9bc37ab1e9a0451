// host/output/still_writer.h - one picture that ffmpeg makes: of all frames the last one.
#pragma once

#include <memory>
#include <string>

#include "host/output/frame_writer.h"

namespace pennywort::host {

class still_writer : public frame_writer {
public:
    // `inner` writes one picture to `path`.
    still_writer(std::unique_ptr<frame_writer> inner, std::string path);

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    // Half a picture is worse than none: after a failure there is none.
    outcome finish() override;

private:
    const std::unique_ptr<frame_writer> m_inner;
    const std::string m_path;
    picture_ptr m_last;
};

}  // namespace pennywort::host
