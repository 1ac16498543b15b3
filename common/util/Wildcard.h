// Matching of file names against DOS-style wildcard expressions.
//
//   *   any run of characters, dots included; may be empty
//   ?   exactly one character, dots included
//   <   any run of characters that ends at the last dot or before it; where no
//       dot is left, any run, but only an empty one at the start of the name
//   >   one character other than a dot, or a dot that another one follows;
//       nothing at the last dot
//   "   a dot, if there is one; nothing otherwise
//
// Any other character matches itself. There is no escape, and a wildcard in a
// name is an ordinary character. "?" and ">" may move past the end of the name;
// from there only a "*" at the end of the expression matches.
//
// A long name that does not match takes time exponential in the number of "*"
// and "<"; the recursion is at most that deep. Nothing is allocated. Safe from
// any thread and in a forked child of a threaded process.

#pragma once

// Whether all of `name` matches all of `expression`; neither may be null. With
// `ignoreCase`, literals match without regard to the case of ASCII letters.
//
//   *.txt   matches a.txt, but not a.txt.bak
//   ab?*    matches ab, but ab? does not
//   <.txt   matches a.b.txt
//   a<      matches abc, but < does not
//   a>.txt  matches a.txt and ab.txt; a> does not match a
//   a"b     matches ab and a.b
bool IsNameInExpression(const wchar_t* expression, const wchar_t* name,
                        bool ignoreCase);

// The same for bytes.
bool IsNameInExpressionA(const char* expression, const char* name,
                         bool ignoreCase);
