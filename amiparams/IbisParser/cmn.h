// cmn: memory and text utilities beneath the parameter-tree parser.
//
// Plain functions in the C style of the parser: allocation through
// pointer-to-pointer with an integer result, zero-filled blocks, heap copies
// of texts, and a bounded whitespace skipper. A broken precondition (a null
// pointer or a zero size handed in) prints "<source>:<line>:assertion failed."
// on standard output, flushes and aborts the process.
#pragma once

#include <cstddef>

// Non-zero lifts the 120-character limit of CMN_EatWhitespace.
extern int gbAllowAnyLineLength;

// Source name printed in the assertion line ("cmn.cpp:616:assertion failed.").
extern const char* const CMN_SOURCE_NAME;

// Zero-filled allocation of count bytes into *out; 1 on success, 0 (after
// logging error 1906) on failure.
int CMN_malloc(void** out, size_t count);
// Resizes *p; 1 on success, 0 (after logging error 1907) on failure, in which
// case *p is null and the old block is no longer reachable through it.
int CMN_realloc(void** p, size_t size);
void CMN_free(void* p);
// Frees *p and nulls it.
void CMN_freeSetNull(void** p);

// Heap copy of s (null for null s); null after logging bug 1908 on failure.
char* CMN_StrMake(const char* s);
// Zero-filled block of n + 1 bytes holding at most n characters of s.
char* CMN_StrMakeN(const char* s, int n);

// Non-zero when c, taken as a signed byte, is a blank of the C locale
// (space, \t, \n, \v, \f, \r).
int CMN_IsWhitespace(int c);
// Advances *cursor over whitespace, at most 120 characters unless
// gbAllowAnyLineLength is set.
void CMN_EatWhitespace(const char** cursor);
