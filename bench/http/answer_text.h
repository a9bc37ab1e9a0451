// answer_text.h - the body that every server of the comparison answers with.
#pragma once

#include <string>

inline const std::string& answer_text() {
    static const std::string text(1024, 'x');
    return text;
}
