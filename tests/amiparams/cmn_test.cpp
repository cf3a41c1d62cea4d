// Tests of the CMN_ memory and text utilities.
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

using amiparams_test::CaptureLog;
using amiparams_test::RunInChild;

TEST(cmn, AllocatesZeroFilledAndCopiesTexts) {
    unsigned char* block = nullptr;
    ASSERT_EQ(CMN_malloc(reinterpret_cast<void**>(&block), 64), 1);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(block[i], 0) << i;
    memset(block, 0x5a, 64);
    ASSERT_EQ(CMN_realloc(reinterpret_cast<void**>(&block), 4096), 1);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(block[i], 0x5a) << i;
    CMN_freeSetNull(reinterpret_cast<void**>(&block));
    EXPECT_EQ(block, nullptr);

    char* copy = CMN_StrMake("Typ");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "Typ");
    CMN_free(copy);
    EXPECT_EQ(CMN_StrMake(nullptr), nullptr);

    struct { const char* s; int n; const char* expected; } cases[] = {
        {"abcdef", 3, "abc"}, {"ab", 5, "ab"}, {"", 0, ""}, {"xyz", 0, ""}, {nullptr, 2, ""}};
    for (const auto& c : cases) {
        char* s = CMN_StrMakeN(c.s, c.n);
        ASSERT_NE(s, nullptr) << c.expected;
        EXPECT_STREQ(s, c.expected);
        for (int i = 0; i <= c.n; ++i) EXPECT_EQ(s[i], i < static_cast<int>(strlen(c.expected)) ? c.expected[i] : '\0');
        CMN_freeSetNull(reinterpret_cast<void**>(&s));
    }
}

TEST(cmn, WhitespaceIsTheCLocaleBlanksOfASignedByte) {
    struct { int c; bool blank; } cases[] = {
        {' ', true},  {'\t', true}, {'\n', true}, {'\v', true}, {'\f', true}, {'\r', true},
        {0x120, true},  // taken as a byte: 0x20
        {'\0', false}, {'a', false}, {'(', false}, {'"', false}, {0x08, false}, {0x0e, false},
        {0xa0, false}, {0x85, false}, {-1, false}, {0x7f, false}};
    for (const auto& c : cases) EXPECT_EQ(CMN_IsWhitespace(c.c) != 0, c.blank) << "c=" << c.c;
}

TEST(cmn, EatWhitespaceStopsAtTextAndAtMost120) {
    struct { std::string text; size_t stop; } cases[] = {
        {" \t\n\v\f\rx", 6}, {"x  ", 0}, {"", 0}, {std::string(120, ' ') + "x", 120},
        {std::string(60, '\t') + std::string(60, '\n') + "(", 120}};
    for (const auto& c : cases) {
        const char* p = c.text.c_str();
        CMN_EatWhitespace(&p);
        EXPECT_EQ(static_cast<size_t>(p - c.text.c_str()), c.stop) << c.text.size();
    }
    const std::string longRun = std::string(500, ' ') + "x";
    const char* p = longRun.c_str();
    gbAllowAnyLineLength = 1;
    CMN_EatWhitespace(&p);
    gbAllowAnyLineLength = 0;
    EXPECT_EQ(*p, 'x');
}

TEST(cmn, BrokenPreconditionsPrintTheirLineAndAbort) {
    static void* s_null = nullptr;
    static void* s_block = nullptr;
    static const std::string s_run121 = std::string(121, ' ') + "x";
    struct { const char* what; void (*call)(); int line; } cases[] = {
        {"malloc null out", [] { CMN_malloc(nullptr, 8); }, 391},
        {"malloc null out and zero size", [] { CMN_malloc(nullptr, 0); }, 391},
        {"malloc zero size", [] { CMN_malloc(&s_block, 0); }, 392},
        {"realloc null", [] { CMN_realloc(nullptr, 8); }, 421},
        {"realloc zero size", [] { CMN_realloc(&s_block, 0); }, 422},
        {"free null", [] { CMN_free(nullptr); }, 450},
        {"freeSetNull on null", [] { CMN_freeSetNull(&s_null); }, 465},
        {"freeSetNull null handle", [] { CMN_freeSetNull(nullptr); }, 465},
        {"eat null cursor", [] { CMN_EatWhitespace(nullptr); }, 607},
        {"eat 121 blanks", [] { const char* p = s_run121.c_str(); CMN_EatWhitespace(&p); }, 616},
    };
    for (const auto& c : cases) {
        auto outcome = RunInChild(c.call);
        EXPECT_TRUE(outcome.bAborted) << c.what;
        EXPECT_EQ(outcome.sStdout, "cmn.cpp:" + std::to_string(c.line) + ":assertion failed.\n") << c.what;
    }
}

TEST(cmn, AllocationFailureIsLoggedAndReported) {
    const unsigned long errorsBefore = gulError_cnt;
    void* block = reinterpret_cast<void*>(1);
    std::string log = CaptureLog([&] { EXPECT_EQ(CMN_malloc(&block, SIZE_MAX), 0); });
    EXPECT_EQ(block, nullptr);
    // The request number is not compared: the old-style line formats it a
    // second time from the argument list.
    const std::string allocPrefix = "ERROR - Memory allocation failed.  This request ";
    EXPECT_EQ(log.compare(0, allocPrefix.size(), allocPrefix), 0) << log;
    EXPECT_EQ(log.substr(log.size() - 3), ".\n\n") << log;

    void* old = malloc(16);
    block = old;
    log = CaptureLog([&] { EXPECT_EQ(CMN_realloc(&block, SIZE_MAX), 0); });
    EXPECT_EQ(block, nullptr);
    free(old);  // realloc left it in place; only the caller's pointer was lost
    const std::string reallocPrefix = "ERROR - Memory reallocation failed.  This request ";
    EXPECT_EQ(log.compare(0, reallocPrefix.size(), reallocPrefix), 0) << log;
    EXPECT_EQ(gulError_cnt, errorsBefore + 2);
}
