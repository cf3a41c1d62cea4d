// cmn: memory and text utilities beneath the parameter-tree parser.
//
// The assertion lines carry fixed line numbers (391, 392, 421, 422, 450, 465,
// 607, 616) rather than __LINE__, so that the printed diagnostic stays the
// same however this file is edited.
#include "amiparams/IbisParser/cmn.h"

#include "amiparams/IbisParser/errlog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int gbAllowAnyLineLength = 0;

const char* const CMN_SOURCE_NAME = "cmn.cpp";

namespace {

// Longest whitespace run CMN_EatWhitespace accepts: one input line's worth.
const int kMaxWhitespaceRun = 120;

// Line recorded for the allocation failure reported by CMN_StrMake.
const int kStrMakeLine = 1878;

[[noreturn]] void AssertionFailed(int line) {
    printf("%s:%d:assertion failed.\n", CMN_SOURCE_NAME, line);
    fflush(stdout);
    abort();
}

}  // namespace

int CMN_malloc(void** out, size_t count) {
    if (out == nullptr) AssertionFailed(391);
    if (count == 0) AssertionFailed(392);
    *out = calloc(count, 1);
    if (*out == nullptr) {
        ERRLOG_ErrorNew(1906, static_cast<unsigned>(count));
        return 0;
    }
    return 1;
}

int CMN_realloc(void** p, size_t size) {
    if (p == nullptr) AssertionFailed(421);
    if (size == 0) AssertionFailed(422);
    *p = realloc(*p, size);
    if (*p == nullptr) {
        ERRLOG_ErrorNew(1907, static_cast<unsigned>(size));
        return 0;
    }
    return 1;
}

void CMN_free(void* p) {
    if (p == nullptr) AssertionFailed(450);
    free(p);
}

void CMN_freeSetNull(void** p) {
    if (p == nullptr || *p == nullptr) AssertionFailed(465);
    free(*p);
    *p = nullptr;
}

char* CMN_StrMake(const char* s) {
    if (s == nullptr) return nullptr;
    size_t n = strlen(s) + 1;
    char* copy = static_cast<char*>(malloc(n));
    if (copy == nullptr) {
        ERRLOG_BugNew(1908, CMN_SOURCE_NAME, kStrMakeLine);
        return nullptr;
    }
    memcpy(copy, s, n);
    return copy;
}

char* CMN_StrMakeN(const char* s, int n) {
    if (n < 0) return nullptr;
    char* copy = static_cast<char*>(calloc(static_cast<size_t>(n) + 1, 1));
    if (copy == nullptr) return nullptr;
    if (s != nullptr) strncpy(copy, s, static_cast<size_t>(n));
    return copy;
}

int CMN_IsWhitespace(int c) {
    // Taken as a signed byte, so bytes of 0x80 and above are never blanks;
    // tested by value rather than through isspace(), whose argument must not
    // be negative.
    signed char b = static_cast<signed char>(c);
    return b == ' ' || (b >= '\t' && b <= '\r');
}

void CMN_EatWhitespace(const char** cursor) {
    if (cursor == nullptr) AssertionFailed(607);
    if (*cursor == nullptr) return;
    int run = 0;
    while (CMN_IsWhitespace(**cursor)) {
        if (!gbAllowAnyLineLength && run >= kMaxWhitespaceRun) AssertionFailed(616);
        ++run;
        ++*cursor;
    }
}
