// driver.cpp - runs a fuzz target without a fuzzer: the files of a folder, then that many changes
// of them, the same each time. usage: fuzz_steps NAME STEPS FOLDER
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"

namespace {

constexpr std::size_t k_longest = 2000;

std::vector<std::string> seeds_of(const char* folder) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    // The order of a folder differs from one machine to the next.
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> seeds;
    for (const auto& path : paths) {
        std::ifstream file(path, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return seeds;
}

class changer {
public:
    explicit changer(std::vector<std::string> seeds) : m_seeds(std::move(seeds)) {}

    std::string next() {
        std::string text = any_seed();
        for (std::size_t changes = 1 + below(6); changes > 0; --changes) change(text);
        return text.substr(0, k_longest);
    }

private:
    std::size_t below(std::size_t bound) { return bound == 0 ? 0 : m_random() % bound; }
    const std::string& any_seed() { return m_seeds[below(m_seeds.size())]; }

    void change(std::string& text) {
        static const std::string k_likely("\r\n: \t;=\0-?./%0a\"\\{},[]u.e", 26);
        const std::size_t at = below(text.size() + 1);
        switch (below(6)) {
            case 0:
                text.insert(at, 1, static_cast<char>(m_random()));
                break;
            case 1:
                text.insert(at, 1, k_likely[below(k_likely.size())]);
                break;
            case 2:
                text.erase(at, below(8));
                break;
            case 3:
                if (at < text.size()) text[at] = k_likely[below(k_likely.size())];
                break;
            case 4:
                text.insert(at, text.substr(below(text.size() + 1), below(40)));
                break;
            default:
                text.insert(at, any_seed().substr(0, 1 + below(60)));
        }
    }

    std::vector<std::string> m_seeds;
    std::mt19937 m_random{20240601};
};

void run(const fuzz_target& target, const std::string& text) {
    // Memory of its own size: a sanitizer notices a look past it.
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    target.look(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return std::fputs("usage: fuzz_steps NAME STEPS FOLDER\n", stderr), 2;
    const fuzz_target* const target = fuzz_target::named(argv[1]);
    require(target != nullptr, "there is a target of this name");
    const auto seeds = seeds_of(argv[3]);
    require(!seeds.empty(), "the folder holds inputs to begin with");
    for (const std::string& seed : seeds) run(*target, seed);
    changer changes(seeds);
    for (long step = std::atol(argv[2]); step > 0; --step) run(*target, changes.next());
    return 0;
}
