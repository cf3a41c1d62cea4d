// errlog: the numbered diagnostics log of the parser utilities.
//
// Messages are looked up by number in errorLogTable, formatted with the
// caller's arguments and printed to a process-wide stream (standard output
// unless redirected), either in the old style with a severity word
// ("ERROR - ...") or in the numbered style ("E1906 - ..."). Long texts move
// to their own indented line so that nothing passes column 79. Counters keep
// the number of messages printed per severity. All state is global and
// unguarded: one thread at a time.
#pragma once

#include <cstdarg>
#include <cstdio>

extern FILE* gpLogFile;            // log stream; standard output on first use if null
extern int gbOldStyleErrors;       // 1: severity words; 0: letter and number
extern int gbSuppressBugs;
extern int gbSuppressErrors;
extern int gbSuppressWarns;
extern int gbSuppressCautions;     // cautions are suppressed by default
extern unsigned long gulBug_cnt;
extern unsigned long gulError_cnt;
extern unsigned long gulWarn_cnt;
extern unsigned long gulCaution_cnt;
extern unsigned long gulLineNum;   // input line for the "(line ...)" variants

// One row of the message table: a number and its printf format.
struct ERRLOG_ROW {
    unsigned int uCode;
    const char* pszFormat;
};

// Rows ascending by code; row 0 answers unknown codes.
extern const ERRLOG_ROW errorLogTable[];
extern const int errorLogTableSize;

// Severity kinds understood by the printers.
enum {
    ERRLOG_KIND_BUG = 0,
    ERRLOG_KIND_LINE_BUG = 1,
    ERRLOG_KIND_ERROR = 2,
    ERRLOG_KIND_LINE_ERROR = 3,
    ERRLOG_KIND_WARN = 4,
    ERRLOG_KIND_LINE_WARN = 5,
    ERRLOG_KIND_CAUTION = 6,
    ERRLOG_KIND_LINE_CAUTION = 7,
    ERRLOG_KIND_NOTE = 8,
    ERRLOG_KIND_LINE_NOTE = 9,
    ERRLOG_KIND_INFO = 10
};

// Row index of code, or -1.
int BSearchErrorLogTable(unsigned int code);

// Print message `code` with the given severity unless that severity is
// suppressed. Return the row index, or for an unknown code what the printer
// returns after reporting "Error code doesn't exist." as information.
int ERRLOG_BugNew(unsigned int code, ...);
int ERRLOG_LineBugNew(unsigned int code, ...);
int ERRLOG_ErrorNew(unsigned int code, ...);
int ERRLOG_LineErrorNew(unsigned int code, ...);
int ERRLOG_WarnNew(unsigned int code, ...);
int ERRLOG_LineWarnNew(unsigned int code, ...);
int ERRLOG_CautionNew(unsigned int code, ...);

// The two printers behind the functions above, for callers that choose the
// kind themselves. Both return the number of characters printed (0 when the
// kind prints nothing).
int s_ErrLogNew(unsigned int code, int kind, const char* format, va_list args);
int s_ErrLog(int kind, const char* format, va_list args);

void ERRLOG_SetOutputFile(FILE* f);
unsigned long PARSE_GetLineNum();
