// process_usage_linux.cpp - Linux half of process_usage.h, over getrusage and /proc.
#include "bench/process_usage.h"

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace pennywort::bench {

namespace {

constexpr double k_bytes_per_mb = 1024.0 * 1024.0;

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

rusage usage_of(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return usage;
}

double cpu_s(const rusage& usage) { return seconds(usage.ru_utime) + seconds(usage.ru_stime); }

double pages_as_mb(long pages) {
    return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / k_bytes_per_mb;
}

struct process_row {
    int parent = 0;
    double cpu_s = 0;
    double resident_mb = 0;
};

// The fields after the program's name, which may hold blanks and brackets itself.
bool read_row(const std::string& folder, process_row& row) {
    std::ifstream file(folder + "/stat");
    std::string line;
    if (!std::getline(file, line) || line.rfind(')') == std::string::npos) return false;
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::string skipped;
    double user = 0;
    double system = 0;
    long pages = 0;
    fields >> skipped >> row.parent;
    for (int i = 0; i < 9; ++i) fields >> skipped;
    fields >> user >> system;
    for (int i = 0; i < 8; ++i) fields >> skipped;
    fields >> pages;
    row.cpu_s = (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    row.resident_mb = pages_as_mb(pages);
    return static_cast<bool>(fields);
}

std::map<int, process_row> all_processes() {
    std::map<int, process_row> rows;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const int id = std::atoi(entry.path().filename().c_str());
        process_row row;
        if (id > 0 && read_row(entry.path().string(), row)) rows[id] = row;
    }
    return rows;
}

bool is_below(int id, int top, const std::map<int, process_row>& rows) {
    for (int depth = 0; depth < 64; ++depth) {
        const auto row = rows.find(id);
        if (row == rows.end()) return false;
        if (row->second.parent == top) return true;
        id = row->second.parent;
    }
    return false;
}

}  // namespace

double own_cpu_s() { return cpu_s(usage_of(RUSAGE_SELF)); }
long own_peak_mb() { return usage_of(RUSAGE_SELF).ru_maxrss / 1024; }
double ended_children_cpu_s() { return cpu_s(usage_of(RUSAGE_CHILDREN)); }

children_usage running_children() {
    children_usage children;
    const auto rows = all_processes();
    for (const auto& [id, row] : rows) {
        if (!is_below(id, getpid(), rows)) continue;
        children.cpu_s[id] = row.cpu_s;
        children.resident_mb += row.resident_mb;
    }
    return children;
}

double cpu_between(const children_usage& earlier, const children_usage& later) {
    double sum = 0;
    for (const auto& [id, cpu] : later.cpu_s) {
        const auto before = earlier.cpu_s.find(id);
        sum += cpu - (before == earlier.cpu_s.end() ? 0 : before->second);
    }
    return sum;
}

long own_resident_mb() {
    std::ifstream file("/proc/self/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return static_cast<long>(pages_as_mb(resident));
}

}  // namespace pennywort::bench
