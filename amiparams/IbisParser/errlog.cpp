// errlog: the numbered diagnostics log of the parser utilities.
#include "amiparams/IbisParser/errlog.h"

#include <cstring>

FILE* gpLogFile = nullptr;
int gbOldStyleErrors = 1;
int gbSuppressBugs = 0;
int gbSuppressErrors = 0;
int gbSuppressWarns = 0;
int gbSuppressCautions = 1;
unsigned long gulBug_cnt = 0;
unsigned long gulError_cnt = 0;
unsigned long gulWarn_cnt = 0;
unsigned long gulCaution_cnt = 0;
unsigned long gulLineNum = 0;

// Only the rows the parameter parser can reach are carried; the file
// checker's rows live with the checker.
const ERRLOG_ROW errorLogTable[] = {
    {0, "Error code doesn't exist."},
    {1906, "Memory allocation failed.  This request %u.\n"},
    {1907, "Memory reallocation failed.  This request %u.\n"},
    {1908, "Unable to Allocate Memory: %s %d"},
};
const int errorLogTableSize = static_cast<int>(sizeof errorLogTable / sizeof errorLogTable[0]);

namespace {

// Formatting buffer; the reachable texts are far shorter.
const size_t kMessageBufferSize = 1024;

// Width of the line number in "(line %*lu)".
const int kLineWidth = 4;

// One row per kind 0..10: the printed forms and the text lengths (inclusive)
// for which the text moves to its own line. A text moves when prefix plus
// text would reach column 80 while the indented text still fits in 79.
struct KindLayout {
    const char* pszOld;         // old style, one line
    const char* pszOldWrapped;  // old style, text on its own line
    char cLetter;               // numbered style: letter before the code
    bool bWithLine;             // prints "(line %*lu)"
    int nWrapMin, nWrapMax;     // 0, 0: never wrapped
};

const KindLayout kLayouts[] = {
    {"PROGRAM BUG - %s\n", nullptr, 'B', false, 0, 0},
    {"PROGRAM BUG (line %*lu) - %s\n", nullptr, 'B', true, 0, 0},
    {"ERROR - %s\n", "ERROR -\n    %s\n", 'E', false, 72, 75},
    {"ERROR (line %*lu) - %s\n", "ERROR (line %*lu) -\n    %s\n", 'E', true, 60, 75},
    {"WARNING - %s\n", "WARNING -\n    %s\n", 'W', false, 70, 75},
    {"WARNING (line %*lu) - %s\n", "WARNING (line %*lu) -\n    %s\n", 'W', true, 58, 75},
    {"CAUTION - %s\n", "CAUTION -\n    %s\n", 'C', false, 70, 75},
    {"CAUTION (line %*lu) - %s\n", "CAUTION (line %*lu) -\n    %s\n", 'C', true, 58, 75},
    {"NOTE - %s\n", "NOTE -\n    %s\n", 'N', false, 73, 75},
    {"NOTE (line %*lu) - %s\n", "NOTE (line %*lu) -\n    %s\n", 'N', true, 61, 75},
    {nullptr, nullptr, 'I', false, 0, 0},
};
const int kLastKind = ERRLOG_KIND_INFO;

FILE* LogStream() {
    if (gpLogFile == nullptr) gpLogFile = stdout;
    return gpLogFile;
}

bool Wraps(const KindLayout& layout, size_t length) {
    return layout.nWrapMax > 0 && length >= static_cast<size_t>(layout.nWrapMin) &&
           length <= static_cast<size_t>(layout.nWrapMax);
}

// Counts a printed message of kinds 0-7 against its severity.
void CountKind(int kind) {
    switch (kind) {
    case ERRLOG_KIND_BUG: case ERRLOG_KIND_LINE_BUG: ++gulBug_cnt; break;
    case ERRLOG_KIND_ERROR: case ERRLOG_KIND_LINE_ERROR: ++gulError_cnt; break;
    case ERRLOG_KIND_WARN: case ERRLOG_KIND_LINE_WARN: ++gulWarn_cnt; break;
    case ERRLOG_KIND_CAUTION: case ERRLOG_KIND_LINE_CAUTION: ++gulCaution_cnt; break;
    default: break;
    }
}

// Numbered style: the same layout as the old style with "<letter><code>" in
// place of the severity word.
int PrintNumbered(unsigned int code, int kind, const char* text) {
    if (kind < 0 || kind > kLastKind) return 0;
    const KindLayout& layout = kLayouts[kind];
    const bool wrap = Wraps(layout, strlen(text));
    const char* tail = wrap ? " -\n    %s\n" : " - %s\n";
    FILE* f = LogStream();
    int n = fprintf(f, "%c%04d", layout.cLetter, static_cast<int>(code));
    if (layout.bWithLine) n += fprintf(f, " (line %*lu)", kLineWidth, PARSE_GetLineNum());
    n += fprintf(f, tail, text);
    fflush(f);
    CountKind(kind);
    return n;
}

int Dispatch(unsigned int code, int kind, int suppressed, va_list args) {
    int row = BSearchErrorLogTable(code);
    if (row < 0) return s_ErrLogNew(0, ERRLOG_KIND_INFO, errorLogTable[0].pszFormat, args);
    if (!suppressed) s_ErrLogNew(code, kind, errorLogTable[row].pszFormat, args);
    return row;
}

}  // namespace

int BSearchErrorLogTable(unsigned int code) {
    int low = 0;
    int high = errorLogTableSize - 1;
    while (low <= high) {
        int mid = (low + high) / 2;
        if (errorLogTable[mid].uCode == code) return mid;
        if (errorLogTable[mid].uCode < code)
            low = mid + 1;
        else
            high = mid - 1;
    }
    return -1;
}

int s_ErrLogNew(unsigned int code, int kind, const char* format, va_list args) {
    LogStream();
    // The first formatting reads a copy of the argument list, so the
    // old-style printer below formats again from an intact list of its own.
    char text[kMessageBufferSize];
    va_list first;
    va_copy(first, args);
    vsnprintf(text, sizeof text, format, first);
    va_end(first);
    if (gbOldStyleErrors) return s_ErrLog(kind, format, args);
    return PrintNumbered(code, kind, text);
}

int s_ErrLog(int kind, const char* format, va_list args) {
    if (kind < 0 || kind > ERRLOG_KIND_LINE_NOTE) return 0;
    char text[kMessageBufferSize];
    vsnprintf(text, sizeof text, format, args);
    const KindLayout& layout = kLayouts[kind];
    const char* form = Wraps(layout, strlen(text)) ? layout.pszOldWrapped : layout.pszOld;
    FILE* f = LogStream();
    int n = layout.bWithLine ? fprintf(f, form, kLineWidth, PARSE_GetLineNum(), text)
                             : fprintf(f, form, text);
    fflush(f);
    CountKind(kind);
    return n;
}

int ERRLOG_BugNew(unsigned int code, ...) {
    va_list args;
    va_start(args, code);
    int r = Dispatch(code, ERRLOG_KIND_BUG, gbSuppressBugs, args);
    va_end(args);
    return r;
}

int ERRLOG_LineBugNew(unsigned int code, ...) {
    va_list args;
    va_start(args, code);
    int r = Dispatch(code, ERRLOG_KIND_LINE_BUG, gbSuppressBugs, args);
    va_end(args);
    return r;
}

int ERRLOG_ErrorNew(unsigned int code, ...) {
    va_list args;
    va_start(args, code);
    int r = Dispatch(code, ERRLOG_KIND_ERROR, gbSuppressErrors, args);
    va_end(args);
    return r;
}

int ERRLOG_LineErrorNew(unsigned int code, ...) {
    va_list args;
    va_start(args, code);
    int r = Dispatch(code, ERRLOG_KIND_LINE_ERROR, gbSuppressErrors, args);
    va_end(args);
    return r;
}

int ERRLOG_WarnNew(unsigned int code, ...) {
    va_list args;
    va_start(args, code);
    int r = Dispatch(code, ERRLOG_KIND_WARN, gbSuppressWarns, args);
    va_end(args);
    return r;
}

int ERRLOG_LineWarnNew(unsigned int code, ...) {
    va_list args;
    va_start(args, code);
    int r = Dispatch(code, ERRLOG_KIND_LINE_WARN, gbSuppressWarns, args);
    va_end(args);
    return r;
}

int ERRLOG_CautionNew(unsigned int code, ...) {
    va_list args;
    va_start(args, code);
    int r = Dispatch(code, ERRLOG_KIND_CAUTION, gbSuppressCautions, args);
    va_end(args);
    return r;
}

void ERRLOG_SetOutputFile(FILE* f) { gpLogFile = f; }

unsigned long PARSE_GetLineNum() { return gulLineNum; }
