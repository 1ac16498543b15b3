// Matching of file names against DOS-style wildcard expressions.
//
//   *   any run of characters, dots included; may be empty
//   ?   exactly one character, dots included
//   <   any run of characters that stops at the last dot of the name or before
//       it; the dot itself is left to the rest of the expression
//   >   one character other than a dot, or a dot that another one follows;
//       nothing at the last dot
//   "   a dot, if there is one; nothing otherwise
//
// Any other character stands for itself, the dot included. There is no escape:
// a wildcard in an expression is always one, and one in a name never is.
//
// Two rules are less obvious:
//
// - "?" and ">" may move past the end of the name. From there only a "*" at the
//   end of the expression matches: "ab?" does not match "ab", "ab?*" does.
// - "<" at the start of a name without a dot matches nothing: "<" does not
//   match "abc". Later in such a name it is like "*": "a<" matches "abc".
//
// "*" and "<" try their runs from the shortest up. Nothing is remembered, so a
// long name that does not match takes time exponential in their number. The
// recursion is at most that number deep. Nothing is allocated. Safe from any
// thread and in a forked child of a threaded process.

#pragma once

// Whether all of `name` matches all of `expression`; neither may be null. With
// `ignoreCase`, literals match without regard to the case of ASCII letters.
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

// The same for bytes.
bool IsNameInExpressionA(const char* expression, const char* name,
                         bool ignoreCase);
