// whole_answer.h - a head and the body behind it as one body, so that the server sends both bit by
// bit. No clock, no I/O.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "httpserver.h"
#include "httpserver/request_view.h"

namespace pennywort::httpserver {

// A body without its first bytes.
class rest_of_body final : public cHttpBody {
public:
    rest_of_body(std::unique_ptr<cHttpBody> whole, std::int64_t begin)
        : m_whole(std::move(whole)), m_begin(begin) {}

    std::int64_t Size() override { return m_whole->Size() - m_begin; }
    std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
        return m_whole->ReadAt(m_begin + offset, into, size);
    }

private:
    const std::unique_ptr<cHttpBody> m_whole;
    const std::int64_t m_begin;
};

class whole_answer final : public cHttpBody {
public:
    // `length` is what the head has told of the body: no more of it is sent.
    whole_answer(std::string head, answer_parts parts, std::int64_t length);

    std::int64_t Size() override;
    std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override;

private:
    std::int32_t read_body(std::int64_t offset, char* into, std::int32_t size);

    const std::string m_head;
    answer_parts m_parts;
    const std::int64_t m_length;
};

}  // namespace pennywort::httpserver
