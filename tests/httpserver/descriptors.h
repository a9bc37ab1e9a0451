// descriptors.h - how many descriptors or handles the process has. Twins: descriptors_linux.cpp,
// descriptors_win.cpp.
#pragma once

#include <cstddef>
#include <vector>

// Of those that are open now.
std::size_t open_descriptors();
// Raises the bound of the process to `wanted`, if it may; answers whether there is room for them.
bool make_room_for_descriptors(std::size_t wanted);

// While it lives, no more descriptors can be opened.
class no_more_descriptors {
public:
    no_more_descriptors();
    no_more_descriptors(const no_more_descriptors&) = delete;
    no_more_descriptors& operator=(const no_more_descriptors&) = delete;
    ~no_more_descriptors();

    // False where the system has no such bound.
    bool is_available() const { return m_bound != 0; }

private:
    std::size_t m_bound = 0;
    std::vector<int> m_fillers;
};
