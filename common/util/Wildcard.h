// Matching of file names against DOS-style wildcard expressions.
//
//   *   any run of characters, dots included, empty runs too
//   ?   exactly one character, dots included
//   <   any run of characters that ends at the last dot of the name at the
//       latest; the dot itself is left to the rest of the expression
//   >   one character that is not a dot, or a dot that another one follows;
//       nothing at the last dot
//   "   a dot, if there is one; nothing otherwise
//
// Any other character stands for itself, the dot included. There is no escape:
// a wildcard in an expression is always one, and one in a name never is.
//
// Two rules are less plain:
//
// - "?" and ">" go on behind the end of the name. Nothing but a "*" that ends
//   the expression matches from there: "ab?" does not match "ab", "ab?*" does.
// - "<" at the start of a name without a dot matches nothing: "<" does not
//   match "abc". Further on in such a name it is like "*": "a<" matches "abc".
//
// Each "*" and "<" tries its runs from the shortest on. Nothing is remembered,
// so the time grows exponentially with their number when a long name does not
// match; the depth of the recursion is their number at most. Nothing is
// allocated. Safe from any thread, and in a forked copy of a threaded process.

#pragma once

// Whether the whole of `name` matches the whole of `expression`. Both end with
// a NUL and are not null. With `ignoreCase`, "a" to "z" match "A" to "Z" in
// characters that stand for themselves; no other characters are alike.
//
//   expression   name        result
//   *.txt        a.txt       true
//   *.txt        a.txt.bak   false
//   a*           ABC         true with ignoreCase, else false
//   ??           ab          true
//   <.txt        a.b.txt     true
//   a>.txt       a.txt       true
//   a>.txt       ab.txt      true
//   a>           a           false
//   a"b          ab          true
//   a"b          a.b         true
//   a?           a*          true
bool IsNameInExpression(const wchar_t* expression, const wchar_t* name,
                        bool ignoreCase);

// The same for bytes; those of 0x80 and above match only themselves.
bool IsNameInExpressionA(const char* expression, const char* name,
                         bool ignoreCase);
