// host/output/replacing_writer.h - keeps the file that an output replaces until the new one is
// whole.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/output/frame_writer.h"
#include "host/output/output_file.h"
#include "host/output/output_target.h"

namespace pennywort::host {

// Has another writer make its file beside the target, and puts it into its place at the end: whole,
// with all frames or with those up to an interruption. After a failure of that writer what was
// there stays; where nothing was, what there is of the new file is put there. Without a frame
// nothing changes. What is no plain file is written as it stands.
class replacing_writer : public frame_writer {
public:
    using maker = std::function<std::unique_ptr<frame_writer>(const output_target&)>;

    replacing_writer(output_target target, maker make);
    // Without a finish there is no new file.
    ~replacing_writer() override;

    outcome begin() override;
    outcome show(const picture_ptr& frame) override;
    outcome hear(std::span<const float> samples) override;
    outcome complete() override;
    void other_has_failed() override { m_has_failed = true; }
    std::string fate_beside_failure() const override;
    outcome finish() override;

private:
    outcome told(const outcome& result);
    std::string fate_of_file() const;
    outcome look_whether_there();
    outcome settle();
    void remove_part() const;

    const output_target m_target;
    const maker m_make;
    std::optional<replacement> m_file;
    std::unique_ptr<frame_writer> m_inner;
    bool m_was_there = false;  // a file to replace
    bool m_has_frame = false;
    bool m_has_failed = false;
    bool m_is_complete = false;
    bool m_is_settled = false;  // what is left of the part is the user's
};

}  // namespace pennywort::host
