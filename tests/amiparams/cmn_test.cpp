// Tests of the CMN_ memory and text utilities: whitespace, the broken
// preconditions and allocation failure. (Allocation and copies themselves
// carry every parse of ParsedTree_test and ParamParser_test.)
#include "amiparams/IbisParser/cmn.h"
#include "amiparams/IbisParser/errlog.h"

#include "ChildProcess.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
// The allocation-failure test asks for more memory than exists; let the
// sanitizer's allocator answer null as the C library does.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
#endif

// What fn writes to the diagnostics log.
template <typename Fn> std::string CaptureLog(Fn fn) { return kv2_test::CaptureStream(gpLogFile, fn); }
using kv2_test::RunInChild;

TEST(cmn, WhitespaceIsTheCLocaleBlanksOfASignedByteAndAtMost120AreEaten) {
    // 0x120 is taken as the byte 0x20.
    for (int c : std::initializer_list<int>{' ', '\t', '\n', '\v', '\f', '\r', 0x120}) EXPECT_NE(CMN_IsWhitespace(c), 0) << c;
    for (int c : std::initializer_list<int>{'\0', 'a', '(', '"', 0x08, 0x0e, 0xa0, 0x85, -1, 0x7f}) EXPECT_EQ(CMN_IsWhitespace(c), 0) << c;
    const struct { std::string text; size_t stop; } cases[] = {
        {" \t\n\v\f\rx", 6}, {"x  ", 0}, {"", 0}, {std::string(120, ' ') + "x", 120},
        {std::string(60, '\t') + std::string(60, '\n') + "(", 120}};
    for (const auto& c : cases) {
        const char* p = c.text.c_str();
        CMN_EatWhitespace(&p);
        EXPECT_EQ(static_cast<size_t>(p - c.text.c_str()), c.stop) << c.text.size();
    }
}

TEST(cmn, BrokenPreconditionsPrintTheirLineAndAbort) {
    static void* s_null = nullptr;
    static void* s_block = nullptr;
    static const std::string s_run121 = std::string(121, ' ') + "x";
    const struct { const char* what; void (*call)(); int line; } cases[] = {
        {"malloc null out", [] { CMN_malloc(nullptr, 8); }, 391},
        {"malloc zero size", [] { CMN_malloc(&s_block, 0); }, 392},
        {"realloc null", [] { CMN_realloc(nullptr, 8); }, 421},
        {"realloc zero size", [] { CMN_realloc(&s_block, 0); }, 422},
        {"free null", [] { CMN_free(nullptr); }, 450},
        {"freeSetNull on null", [] { CMN_freeSetNull(&s_null); }, 465},
        {"eat null cursor", [] { CMN_EatWhitespace(nullptr); }, 607},
        {"eat 121 blanks", [] { const char* p = s_run121.c_str(); CMN_EatWhitespace(&p); }, 616},
    };
    for (const auto& c : cases) {
        const auto outcome = RunInChild(c.call);
        EXPECT_TRUE(outcome.bAborted) << c.what;
        EXPECT_EQ(outcome.sStdout, "cmn.cpp:" + std::to_string(c.line) + ":assertion failed.\n") << c.what;
    }
}

TEST(cmn, AllocationFailureIsLoggedAndReported) {
    // Old style: the request number is formatted a second time, so only the
    // fixed parts are compared.
    const unsigned long errorsBefore = gulError_cnt;
    void* block = reinterpret_cast<void*>(1);
    void *old = malloc(16), *kept = old;
    const std::string logs[2] = {CaptureLog([&] { EXPECT_EQ(CMN_malloc(&block, SIZE_MAX), 0); }),
                                 CaptureLog([&] { EXPECT_EQ(CMN_realloc(&old, SIZE_MAX), 0); })};
    EXPECT_TRUE(block == nullptr && old == nullptr);
    free(kept);  // realloc left it in place; only the caller's pointer was lost
    EXPECT_EQ(logs[0].rfind("ERROR - Memory allocation failed.  This request ", 0), 0u) << logs[0];
    EXPECT_EQ(logs[1].rfind("ERROR - Memory reallocation failed.  This request ", 0), 0u) << logs[1];
    EXPECT_EQ(gulError_cnt, errorsBefore + 2);
}
