// InputFile: how the tools read a file they are given. Only a regular file
// is read (a directory, FIFO, device or socket is named as what it is, so
// /dev/zero or a pipe can neither exhaust memory nor block), its size is
// checked against a cap before anything is read, and a UTF-8 byte-order mark
// is dropped so that the first line reads as written.
#pragma once

#include <cstddef>
#include <string>

namespace amihost {

constexpr size_t kMaxInputBytes = size_t(1) << 30;  // 1 GiB

// The whole file in `text`; false with `problem` ("is a directory", "is
// larger than 1024 MiB", "cannot be read: No such file or directory", ...).
bool ReadInputFile(const std::string& path, std::string& text, std::string& problem,
                   size_t maxBytes = kMaxInputBytes);

// `text` with control characters (terminal escapes among them) shown as
// \xNN, for echoing what came from a file or the command line.
std::string Printable(const std::string& text);

}  // namespace amihost
