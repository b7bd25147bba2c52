// Text that Android's binder accepts as a string.
//
// AParcel_writeString converts UTF-8 to UTF-16 and refuses (STATUS_BAD_VALUE)
// a string whose last character is cut short: a lead byte that announces
// more bytes than the string has left. Each byte counts as its lead byte
// says (below 0xC0 one byte, then two, three, four), whatever follows it;
// other malformed bytes pass, converted lossily.
//
// Texts built in fixed buffers are cut at a byte count, which can split a
// character exactly that way, and the whole answer would then fail in
// transport. Utf8CutLength and FormatCut keep such a cut on a character
// boundary; ASCII text is never changed.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <string>

namespace lumx {

// Bytes of the character that `lead` starts, as the binder counts them.
inline size_t Utf8SequenceLength(unsigned char lead) {
  return lead < 0xc0 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
}

// The longest prefix of s[0, n) the binder accepts: n, or the start of the
// last character when that character is cut short.
inline size_t Utf8CutLength(const char* s, size_t n) {
  size_t i = 0;
  while (i < n) {
    const size_t len = Utf8SequenceLength(static_cast<unsigned char>(s[i]));
    if (len > n - i) return i;
    i += len;
  }
  return n;
}

inline bool Utf8Sendable(const char* s, size_t n) { return Utf8CutLength(s, n) == n; }

// Drops a character cut short at the end of `text`.
inline void Utf8TrimCut(std::string* text) { text->resize(Utf8CutLength(text->data(), text->size())); }

// snprintf into a fixed buffer, then drops a character the cut split.
// Returns the length kept.
inline size_t FormatCut(char* buf, size_t size, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
inline size_t FormatCut(char* buf, size_t size, const char* fmt, ...) {
  if (size == 0) return 0;
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, size, fmt, ap);
  va_end(ap);
  const size_t kept = Utf8CutLength(buf, strlen(buf));
  buf[kept] = '\0';
  return kept;
}

}  // namespace lumx
