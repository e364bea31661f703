// SPDX-License-Identifier: MIT
//
// Paths: the text that names a file, in two forms, and one name out of it.
//
// In the neutral form the separator is `|`, in the native form it is the platform's, `/`. Whatever
// reads a path accepts `|`, `/` and `\` as separators, so callers never convert: an operation that
// takes a path builds a pfuOSPath of it right before it asks the system. Only the separators
// differ; the text stays in the encoding of the locale. Behind a byte that begins no character, and
// that a `|` would complete to one, the neutral form has a `/`.
//
// An absolute path starts with a root: `/` or `|`, or a letter with `:` and then `|` or `\`. Any
// other path is relative. Behind the root stand components between separators; empty ones and
// separators at the end are legal.
//
// The three classes are plain values of one array each. Nothing here uses the heap, reports an
// error or cuts a text: a text of more than 1023 bytes leaves the object empty, and an append that
// does not fit leaves it as it was, because a path cut short could name another file. An empty
// path names nothing; one that is empty because its text was too long stays so whatever is joined
// to it, or the rest alone would name another file. A null text counts as empty. The source of a
// copy, the other side of a join and the result of a split may be the object itself, or text
// inside it.
#ifndef PLINTH_PFUPATH_H
#define PLINTH_PFUPATH_H

#include "outside/zelexport.h"

/// Bytes of each of the classes below, the terminator included.
inline constexpr unsigned int pfuPathSize = 1024;

/// True if one of the three separators stands at `position`.
ZEL_EXPORT bool issep(char* position);
/// True if `text` starts with `/` or `|`.
ZEL_EXPORT bool IsUnixStyleAbsPath(const char* text);
/// True if `text` starts with a letter of the locale, `:`, and then `|` or `\`.
ZEL_EXPORT bool IsWinStyleAbsPath(const char* text);
/// True if `text` starts with a root of either kind.
ZEL_EXPORT bool pfuIsStringPathAbsolute(const char* text);

/// A name inside a directory, or a root.
class ZEL_EXPORT pfuDirEntry {
public:
    pfuDirEntry() { text[0] = '\0'; }
    pfuDirEntry& operator=(const char* source); ///< empty for what is too long
    /// Appends the text as it is, with no separator between.
    pfuDirEntry& operator+=(const char* tail);
    operator const char*() const { return text; } ///< the text

private:
    char text[pfuPathSize];
};

/// A path, neutral or native: nothing tells the two apart.
class ZEL_EXPORT pfuDirPath {
public:
    pfuDirPath() { SetEmpty(); }
    /// The text unchanged, separators included.
    pfuDirPath(const char* source);
    pfuDirPath(const pfuDirPath& base, const pfuDirPath& rest);  ///< a join: see operator+=
    pfuDirPath(const pfuDirPath& base, const pfuDirEntry& rest); ///< likewise
    pfuDirPath(const pfuDirPath& other) = default;
    pfuDirPath& operator=(const pfuDirPath& other) = default;
    pfuDirPath& operator=(const char* source); ///< empty for what is too long

    /// Joins: appends a `|`, unless the path is empty or its last character is one already, and
    /// then `rest`. An empty `rest` changes nothing, and neither does one that is too long: the
    /// two lengths must come to less than 1022.
    pfuDirPath& operator+=(const pfuDirPath& rest);
    pfuDirPath& operator+=(const pfuDirEntry& rest); ///< joins a name

    operator const char*() const { return text; }    ///< the text
    bool IsEmpty() const { return text[0] == '\0'; } ///< no text
    /// Empty because the text that it was made of, by itself or through a copy, did not fit.
    bool IsOverlong() const { return IsEmpty() && text[1] != '\0'; }
    void SetEmpty() { text[0] = text[1] = '\0'; } ///< forgets the text, and whether it was too long

    // Splitting, byte by byte. The first and the last of these split at the first separator, the
    // two in the middle at the last one. On an empty path all give false and leave the argument.

    /// The first element: the root with its separator, or the text before the first separator.
    bool GetHead(pfuDirEntry& head) const;
    /// All but the last element: the text before the last separator, but never less than the root.
    bool GetHead(pfuDirPath& head) const;
    /// The last element: the text behind the last separator. Empty where the path ends in one.
    bool GetTail(pfuDirEntry& tail) const;
    /// All but the first element: the text behind the root, or behind the first separator.
    bool GetTail(pfuDirPath& tail) const;

    /// The user's home directory, neutral; the current directory where there is none. Empty if
    /// that fails too.
    void GetHomeDir();
    /// The process's current directory, neutral; empty if it cannot be told.
    void GetCurrentDir();

private:
    const char* GetRelPathStart() const;
    pfuDirPath& Join(const char* rest);

    char text[pfuPathSize]; ///< behind an empty text, the second byte says whether it was too long
};

/// A path in native form, ready for the system.
class ZEL_EXPORT pfuOSPath {
public:
    pfuOSPath() { text[0] = '\0'; }
    /// The text with every separator turned into `/`. The text is read character by character in
    /// the encoding of the locale, so that a byte inside a character is never taken for a
    /// separator; a byte that begins no character counts as one.
    pfuOSPath(const char* source);

    operator const char*() const { return text; } ///< the text
    /// The same path with every separator turned into `|`.
    void ToNeutral(pfuDirPath& path) const;
    /// Makes the path a pattern for all entries of the directory: `/` where none stands at the
    /// end, and `*`.
    void AddWildcard();
    /// Removes the separators at the end, but never the root.
    void TrimTrailSeps();
    /// The user's home directory from HOME; the current directory where that is not set, empty or
    /// too long.
    void GetHomeDir();
    /// The process's current directory. Left as it was if that cannot be told or does not fit.
    void GetCurrentDir();

private:
    char text[pfuPathSize];
};

#endif
