// InputFile: what is read and what is refused, with the reason.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "tools/base/InputFile.h"

TEST(InputFile, OnlyRegularFilesWithinTheCapAreReadAndAByteOrderMarkIsDropped) {
    const std::string dir = ::testing::TempDir(), withMark = dir + "/mark.txt", big = dir + "/big.txt";
    std::ofstream(withMark, std::ios::binary) << "\xEF\xBB\xBF" "0.5\n-0.5\n";
    std::ofstream(big, std::ios::binary) << std::string((1u << 20) + 1, 'x');
    ::unlink((dir + "/fifo").c_str());
    ASSERT_EQ(::mkfifo((dir + "/fifo").c_str(), 0600), 0);  // read, it would block forever
    std::string text, problem;
    ASSERT_TRUE(amihost::ReadInputFile(withMark, text, problem)) << problem;
    EXPECT_EQ(text, "0.5\n-0.5\n");
    EXPECT_TRUE(amihost::ReadInputFile(big, text, problem)) << problem;
    EXPECT_EQ(text.size(), (1u << 20) + 1);
    const struct { std::string path; size_t cap; const char* problem; } refused[] = {
        {big, 1u << 20, "is larger than 1 MiB"},
        {dir, amihost::kMaxInputBytes, "is a directory, not a regular file"},
        {"/dev/zero", amihost::kMaxInputBytes, "is a character device, not a regular file"},
        {dir + "/fifo", amihost::kMaxInputBytes, "is a FIFO (named pipe), not a regular file"},
        {dir + "/none", amihost::kMaxInputBytes, "cannot be read: No such file or directory"},
    };
    for (const auto& r : refused) {
        EXPECT_FALSE(amihost::ReadInputFile(r.path, text, problem, r.cap)) << r.path;
        EXPECT_EQ(problem, r.problem) << r.path;
    }
}
