// Helpers shared by the tests: temporary folders and plain file access
// through the standard library, independent of the code under test.
#pragma once

#include "base/log.h"
#include "base/memory.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

inline data_t view_of(const std::string &s) { return data_t{s.size(), s.size(), (u8 *)s.data()}; }
inline std::string text_of(const data_t &d) { return d.used ? std::string((const char *)d.bytes, d.used) : ""; }

inline std::string read_whole(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void write_whole(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), (std::streamsize)bytes.size());
}

// The text written to a log channel since `mark`, a count of its bytes.
inline u64 log_mark(u32 channel = log_main) { return log_channel(channel)->data.used; }
inline std::string log_since(u64 mark, u32 channel = log_main) {
    const data_t &d = log_channel(channel)->data;
    return d.bytes && d.used >= mark ? std::string((const char *)d.bytes + mark, d.used - mark) : "";
}

// What a shell command prints on its standard output; `status` gets its exit status.
inline std::string command_output(const std::string &command, int *status = nullptr) {
    FILE *pipe = popen(command.c_str(), "r");
    std::string out;
    char buffer[65536];
    for (size_t n; pipe && (n = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) out.append(buffer, n);
    int ended = pipe ? pclose(pipe) : -1;
    if (status) *status = ended;
    return out;
}

// The error code a call leaves, starting from none: error_of([&](u32 *e) { f(..., e); }).
template <typename F> u32 error_of(F call) {
    u32 error = 0;
    call(&error);
    return error;
}

// A fresh folder under the system's temporary folder, removed at the end.
struct temp_folder_t {
    std::string path;
    temp_folder_t() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tidewrack-test-XXXXXX").string();
        char *made = mkdtemp(pattern.data());
        path = made ? made : "";
    }
    ~temp_folder_t() {
        std::error_code ignored;
        if (!path.empty()) std::filesystem::remove_all(path, ignored);
    }
    std::string operator/(const std::string &name) const { return path + "/" + name; }
};
