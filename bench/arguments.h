// arguments.h - the command line of a benchmark program: pairs of --name and value.
#pragma once

#include <map>
#include <string>

namespace pennywort::bench {

class arguments {
public:
    // Everything after the first `plain` words must come in pairs; ends the program with `usage`
    // and status 2 if it does not, or if a name is not in `usage`.
    arguments(int argc, char** argv, int plain, const char* usage);

    // The word at `index`, counted from 0 after the program's name.
    const std::string& plain(int index) const { return m_plain.at(index); }
    std::string text(const std::string& name, const std::string& otherwise) const;
    double number(const std::string& name, double otherwise) const;
    int whole(const std::string& name, int otherwise) const;

private:
    std::map<int, std::string> m_plain;
    std::map<std::string, std::string> m_named;
};

}  // namespace pennywort::bench
