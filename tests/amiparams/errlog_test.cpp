// Tests of the ERRLOG_ diagnostics log: layouts, wrapping widths, counters,
// suppression and the table lookup.
#include "amiparams/IbisParser/errlog.h"

#include "ChildProcess.h"

#include <gtest/gtest.h>

#include <string>

using amiparams_test::CaptureLog;
using amiparams_test::RunInChild;

namespace {

// Restores the log's global state after each test.
class errlog : public ::testing::Test {
protected:
    void SetUp() override { Save(); }
    void TearDown() override { Save(true); }

private:
    void Save(bool restore = false) {
        int* flags[] = {&gbOldStyleErrors, &gbSuppressBugs, &gbSuppressErrors, &gbSuppressWarns, &gbSuppressCautions};
        unsigned long* counts[] = {&gulBug_cnt, &gulError_cnt, &gulWarn_cnt, &gulCaution_cnt, &gulLineNum};
        for (int i = 0; i < 5; ++i) restore ? void(*flags[i] = m_flags[i]) : void(m_flags[i] = *flags[i]);
        for (int i = 0; i < 5; ++i) restore ? void(*counts[i] = m_counts[i]) : void(m_counts[i] = *counts[i]);
    }
    int m_flags[5];
    unsigned long m_counts[5];
};

std::string OldStyle(int kind, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string out = CaptureLog([&] { s_ErrLog(kind, format, args); });
    va_end(args);
    return out;
}

std::string Numbered(unsigned code, int kind, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string out = CaptureLog([&] { s_ErrLogNew(code, kind, format, args); });
    va_end(args);
    return out;
}

unsigned long CounterOf(int kind) {
    switch (kind / 2) {
    case 0: return gulBug_cnt;
    case 1: return gulError_cnt;
    case 2: return gulWarn_cnt;
    case 3: return gulCaution_cnt;
    default: return 0;
    }
}

// Per kind: the one-line prefix, the wrapped prefix and the text lengths
// (inclusive) that wrap; in both styles.
struct Layout {
    int kind;
    const char* oldLine;
    const char* oldWrapped;
    const char* numLine;
    const char* numWrapped;
    int wrapMin, wrapMax;  // 0: never wraps
};

const Layout kLayouts[] = {
    {0, "PROGRAM BUG - ", nullptr, "B0042 - ", nullptr, 0, 0},
    {1, "PROGRAM BUG (line    0) - ", nullptr, "B0042 (line    0) - ", nullptr, 0, 0},
    {2, "ERROR - ", "ERROR -\n    ", "E0042 - ", "E0042 -\n    ", 72, 75},
    {3, "ERROR (line    0) - ", "ERROR (line    0) -\n    ", "E0042 (line    0) - ", "E0042 (line    0) -\n    ", 60, 75},
    {4, "WARNING - ", "WARNING -\n    ", "W0042 - ", "W0042 -\n    ", 70, 75},
    {5, "WARNING (line    0) - ", "WARNING (line    0) -\n    ", "W0042 (line    0) - ", "W0042 (line    0) -\n    ", 58, 75},
    {6, "CAUTION - ", "CAUTION -\n    ", "C0042 - ", "C0042 -\n    ", 70, 75},
    {7, "CAUTION (line    0) - ", "CAUTION (line    0) -\n    ", "C0042 (line    0) - ", "C0042 (line    0) -\n    ", 58, 75},
    {8, "NOTE - ", "NOTE -\n    ", "N0042 - ", "N0042 -\n    ", 73, 75},
    {9, "NOTE (line    0) - ", "NOTE (line    0) -\n    ", "N0042 (line    0) - ", "N0042 (line    0) -\n    ", 61, 75},
};

}  // namespace

TEST_F(errlog, LongTextsMoveToTheirOwnLineAtTheStatedWidths) {
    for (const Layout& l : kLayouts) {
        const int lengths[] = {l.wrapMin - 1, l.wrapMin, l.wrapMax, l.wrapMax + 1, 10, 74, 76, 120};
        for (int length : lengths) {
            if (length < 1) continue;
            const std::string text(static_cast<size_t>(length), 'x');
            const bool wraps = l.wrapMax > 0 && length >= l.wrapMin && length <= l.wrapMax;
            SCOPED_TRACE("kind " + std::to_string(l.kind) + " length " + std::to_string(length));

            gbOldStyleErrors = 1;
            const unsigned long before = CounterOf(l.kind);
            EXPECT_EQ(OldStyle(l.kind, "%s", text.c_str()), (wraps ? l.oldWrapped : l.oldLine) + text + "\n");
            EXPECT_EQ(CounterOf(l.kind), before + (l.kind < 8 ? 1 : 0));

            gbOldStyleErrors = 0;
            EXPECT_EQ(Numbered(42, l.kind, "%s", text.c_str()), (wraps ? l.numWrapped : l.numLine) + text + "\n");
            EXPECT_EQ(CounterOf(l.kind), before + (l.kind < 8 ? 2 : 0));
        }
    }
    // Information: nothing in the old style, never wrapped in the numbered one.
    const std::string text74(74, 'y');
    gbOldStyleErrors = 1;
    EXPECT_EQ(OldStyle(10, "%s", text74.c_str()), "");
    EXPECT_EQ(OldStyle(11, "%s", text74.c_str()), "");
    gbOldStyleErrors = 0;
    EXPECT_EQ(Numbered(7, 10, "%s", text74.c_str()), "I0007 - " + text74 + "\n");

    gulLineNum = 123456;
    gbOldStyleErrors = 1;
    EXPECT_EQ(OldStyle(3, "%s", "short"), "ERROR (line 123456) - short\n");
}

TEST_F(errlog, TableMessagesPrintWithTheirOwnNewline) {
    gbOldStyleErrors = 0;
    const unsigned long errors = gulError_cnt, bugs = gulBug_cnt, warns = gulWarn_cnt;
    EXPECT_EQ(CaptureLog([] { EXPECT_EQ(ERRLOG_ErrorNew(1906, 24u), 1); }),
              "E1906 - Memory allocation failed.  This request 24.\n\n");
    EXPECT_EQ(CaptureLog([] { EXPECT_EQ(ERRLOG_LineErrorNew(1907, 8u), 2); }),
              "E1907 (line    0) - Memory reallocation failed.  This request 8.\n\n");
    EXPECT_EQ(CaptureLog([] { EXPECT_EQ(ERRLOG_BugNew(1908, "cmn.cpp", 1878), 3); }),
              "B1908 - Unable to Allocate Memory: cmn.cpp 1878\n");
    EXPECT_EQ(CaptureLog([] { ERRLOG_LineBugNew(1908, "a", 1); }), "B1908 (line    0) - Unable to Allocate Memory: a 1\n");
    EXPECT_EQ(CaptureLog([] { ERRLOG_WarnNew(1906, 1u); }), "W1906 - Memory allocation failed.  This request 1.\n\n");
    EXPECT_EQ(CaptureLog([] { ERRLOG_LineWarnNew(1906, 2u); }),
              "W1906 (line    0) - Memory allocation failed.  This request 2.\n\n");
    EXPECT_EQ(gulError_cnt, errors + 2);
    EXPECT_EQ(gulBug_cnt, bugs + 2);
    EXPECT_EQ(gulWarn_cnt, warns + 2);

    // Unknown numbers are reported as information, which the old style
    // leaves out; nothing is counted.
    EXPECT_EQ(CaptureLog([] { ERRLOG_ErrorNew(4242); }), "I0000 - Error code doesn't exist.\n");
    gbOldStyleErrors = 1;
    EXPECT_EQ(CaptureLog([] { ERRLOG_ErrorNew(4242); }), "");
    EXPECT_EQ(gulError_cnt, errors + 2);

    // Old style (the default): the severity word. The arguments are
    // formatted a second time there, so only the fixed parts are compared.
    std::string line = CaptureLog([] { ERRLOG_BugNew(1908, "cmn.cpp", 1878); });
    EXPECT_EQ(line.rfind("PROGRAM BUG - Unable to Allocate Memory: ", 0), 0u) << line;
    line = CaptureLog([] { ERRLOG_LineErrorNew(1906, 3u); });
    EXPECT_EQ(line.rfind("ERROR (line    0) - Memory allocation failed.  This request ", 0), 0u) << line;
    EXPECT_EQ(line.substr(line.size() - 3), ".\n\n");
}

TEST_F(errlog, SuppressedSeveritiesPrintAndCountNothing) {
    const unsigned long cautions = gulCaution_cnt, errors = gulError_cnt;
    EXPECT_EQ(CaptureLog([] { EXPECT_EQ(ERRLOG_CautionNew(1906, 5u), 1); }), "");  // suppressed by default
    EXPECT_EQ(gulCaution_cnt, cautions);
    gbSuppressCautions = 0;
    gbOldStyleErrors = 0;
    EXPECT_EQ(CaptureLog([] { ERRLOG_CautionNew(1906, 5u); }), "C1906 - Memory allocation failed.  This request 5.\n\n");
    EXPECT_EQ(gulCaution_cnt, cautions + 1);

    gbSuppressErrors = 1;
    EXPECT_EQ(CaptureLog([] { EXPECT_EQ(ERRLOG_ErrorNew(1907, 5u), 2); ERRLOG_LineErrorNew(1907, 5u); }), "");
    EXPECT_EQ(gulError_cnt, errors);
    gbSuppressBugs = 1;
    gbSuppressWarns = 1;
    EXPECT_EQ(CaptureLog([] { ERRLOG_BugNew(1908, "x", 1); ERRLOG_WarnNew(1906, 1u); ERRLOG_LineWarnNew(1906, 1u); }),
              "");
}

TEST_F(errlog, TableLookupAndDefaultStream) {
    struct { unsigned code; int row; } cases[] = {{0, 0}, {1906, 1}, {1907, 2}, {1908, 3}, {1, -1}, {1905, -1}, {1909, -1}, {4294967295u, -1}};
    for (const auto& c : cases) EXPECT_EQ(BSearchErrorLogTable(c.code), c.row) << c.code;
    EXPECT_EQ(PARSE_GetLineNum(), gulLineNum);

    // With no stream set, the first message goes to standard output.
    auto outcome = RunInChild([] {
        ERRLOG_SetOutputFile(nullptr);
        gbOldStyleErrors = 0;
        ERRLOG_ErrorNew(1906, 7u);
        if (gpLogFile != stdout) printf("stream not set\n");
    });
    EXPECT_EQ(outcome.nExitCode, 0);
    EXPECT_EQ(outcome.sStdout, "E1906 - Memory allocation failed.  This request 7.\n\n");
}
