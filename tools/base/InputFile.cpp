// InputFile: stat before open, then one bounded read.
#include "tools/base/InputFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace amihost {

bool ReadInputFile(const std::string& path, std::string& text, std::string& problem, size_t maxBytes) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        problem = std::string("cannot be read: ") + std::strerror(errno);
        return false;
    }
    const char* kind = S_ISDIR(st.st_mode)    ? "a directory"
                       : S_ISFIFO(st.st_mode) ? "a FIFO (named pipe)"
                       : S_ISCHR(st.st_mode)  ? "a character device"
                       : S_ISBLK(st.st_mode)  ? "a block device"
                       : S_ISSOCK(st.st_mode) ? "a socket"
                       : S_ISREG(st.st_mode)  ? nullptr
                                              : "not a regular file";
    if (kind != nullptr) {
        problem = std::string("is ") + kind + ", not a regular file";
        return false;
    }
    if (static_cast<unsigned long long>(st.st_size) > maxBytes) {
        problem = "is larger than " + std::to_string(maxBytes >> 20) + " MiB";
        return false;
    }
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
        problem = std::string("cannot be read: ") + std::strerror(errno);
        return false;
    }
    text.assign(static_cast<size_t>(st.st_size), '\0');
    const size_t got = std::fread(&text[0], 1, text.size(), f);
    // A file that grew meanwhile is read up to the size checked.
    const bool failed = std::ferror(f) != 0;
    std::fclose(f);
    if (failed) {
        problem = "cannot be read: read error";
        return false;
    }
    text.resize(got);
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    return true;
}

std::string Printable(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7f) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace amihost
