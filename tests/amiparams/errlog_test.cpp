// Tests of the ERRLOG_ diagnostics log: layouts, wrapping widths, counters,
// suppression and the table lookup.
#include "amiparams/IbisParser/errlog.h"

#include "ChildProcess.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <functional>
#include <string>
#include <vector>

// What fn writes to the diagnostics log.
template <typename Fn> std::string CaptureLog(Fn fn) { return kv2_test::CaptureStream(gpLogFile, fn); }

namespace {

int* const kFlags[] = {&gbOldStyleErrors, &gbSuppressBugs, &gbSuppressErrors, &gbSuppressWarns, &gbSuppressCautions};
unsigned long* const kCounts[] = {&gulBug_cnt, &gulError_cnt, &gulWarn_cnt, &gulCaution_cnt, &gulLineNum};

// Restores the log's global state after each test.
class errlog : public ::testing::Test {
protected:
    void SetUp() override { for (int i = 0; i < 5; ++i) m_flags[i] = *kFlags[i], m_counts[i] = *kCounts[i]; }
    void TearDown() override { for (int i = 0; i < 5; ++i) *kFlags[i] = m_flags[i], *kCounts[i] = m_counts[i]; }
    int m_flags[5];
    unsigned long m_counts[5];
};

// Prints through the old-style or the numbered (code 42) printer; returns the log.
std::string Print(bool numbered, int kind, const char* format, ...) {
    va_list args;
    va_start(args, format);
    gbOldStyleErrors = numbered ? 0 : 1;
    const std::string out = CaptureLog([&] { numbered ? s_ErrLogNew(42, kind, format, args) : s_ErrLog(kind, format, args); });
    va_end(args);
    return out;
}

}  // namespace

TEST_F(errlog, LongTextsMoveToTheirOwnLineAtTheStatedWidths) {
    // Per kind: the old-style prefix, the numbered one (with code 42), and the
    // text lengths (inclusive) that wrap onto an indented line.
    const struct { int kind; const char *old, *num; int wrapMin, wrapMax; } layouts[] = {
        {0, "PROGRAM BUG -", "B0042 -", 0, 0}, {1, "PROGRAM BUG (line    0) -", "B0042 (line    0) -", 0, 0},
        {2, "ERROR -", "E0042 -", 72, 75},     {3, "ERROR (line    0) -", "E0042 (line    0) -", 60, 75},
        {4, "WARNING -", "W0042 -", 70, 75},   {5, "WARNING (line    0) -", "W0042 (line    0) -", 58, 75},
        {6, "CAUTION -", "C0042 -", 70, 75},   {7, "CAUTION (line    0) -", "C0042 (line    0) -", 58, 75},
        {8, "NOTE -", "N0042 -", 73, 75},      {9, "NOTE (line    0) -", "N0042 (line    0) -", 61, 75},
    };
    for (const auto& l : layouts) {
        for (int length : {l.wrapMin - 1, l.wrapMin, l.wrapMax, l.wrapMax + 1, 74}) {
            if (length < 1) continue;
            const std::string text(static_cast<size_t>(length), 'x');
            const std::string gap = l.wrapMax > 0 && length >= l.wrapMin && length <= l.wrapMax ? "\n    " : " ";
            SCOPED_TRACE("kind " + std::to_string(l.kind) + " length " + std::to_string(length));
            unsigned long* counter = l.kind < 8 ? kCounts[l.kind / 2] : &gulLineNum;  // notes count nothing
            const unsigned long before = *counter;
            EXPECT_EQ(Print(false, l.kind, "%s", text.c_str()) + Print(true, l.kind, "%s", text.c_str()),
                      l.old + gap + text + "\n" + l.num + gap + text + "\n");
            EXPECT_EQ(*counter, before + (l.kind < 8 ? 2 : 0));
        }
    }
    // Information: nothing in the old style, never wrapped in the numbered one.
    EXPECT_EQ(Print(false, 10, "x") + Print(true, 10, "%s", std::string(74, 'y').c_str()), "I0042 - " + std::string(74, 'y') + "\n");
    gulLineNum = 123456;
    EXPECT_EQ(Print(false, 3, "short"), "ERROR (line 123456) - short\n");
}

TEST_F(errlog, TableMessagesSuppressionAndTheDefaultStream) {
    gbOldStyleErrors = 0;
    const unsigned long errors = gulError_cnt, bugs = gulBug_cnt, warns = gulWarn_cnt, cautions = gulCaution_cnt;
    const struct { std::function<void()> call; const char* line; } cases[] = {
        {[] { EXPECT_EQ(ERRLOG_ErrorNew(1906, 24u), 1); }, "E1906 - Memory allocation failed.  This request 24.\n\n"},
        {[] { EXPECT_EQ(ERRLOG_LineErrorNew(1907, 8u), 2); },
         "E1907 (line    0) - Memory reallocation failed.  This request 8.\n\n"},
        {[] { EXPECT_EQ(ERRLOG_BugNew(1908, "cmn.cpp", 1878), 3); }, "B1908 - Unable to Allocate Memory: cmn.cpp 1878\n"},
        {[] { ERRLOG_LineWarnNew(1906, 2u); }, "W1906 (line    0) - Memory allocation failed.  This request 2.\n\n"},
        {[] { EXPECT_EQ(ERRLOG_CautionNew(1906, 5u), 1); }, ""},  // cautions are suppressed by default
        {[] { ERRLOG_ErrorNew(4242); }, "I0000 - Error code doesn't exist.\n"},  // counts nothing
    };
    for (const auto& c : cases) EXPECT_EQ(CaptureLog(c.call), c.line);
    EXPECT_EQ(std::vector<unsigned long>({gulError_cnt, gulBug_cnt, gulWarn_cnt, gulCaution_cnt}),
              std::vector<unsigned long>({errors + 2, bugs + 1, warns + 1, cautions}));
    gbSuppressErrors = 1;
    EXPECT_EQ(CaptureLog([] { ERRLOG_LineErrorNew(1907, 5u); }), "");
    for (unsigned code : {0u, 1906u, 1908u, 1u, 1909u})
        EXPECT_EQ(BSearchErrorLogTable(code), code < 1906 ? (code ? -1 : 0) : code > 1908 ? -1 : int(code - 1905));
}
