// SPDX-License-Identifier: MIT
//
// Owning strings, and what goes with them: numbers as text, delimited lists, the environment, and
// the standard string functions under names of the family.
//
// How dsString differs from std::string:
//  - It is one pointer to a buffer of exactly the size of its text: no length is stored (every
//    question for it counts again) and no capacity (every append allocates and copies).
//  - It ends at its first NUL. Lengths and positions count bytes, whatever the encoding.
//  - It converts to const char* by itself, never to null. So `==` compares addresses, not texts.
//  - It is copied by assignment only, and never moved. A function can return one that it makes in
//    its return statement; a std::vector cannot hold any.
// A default string costs no heap. An address of the text is void after any change of the string.
// Running out of memory throws what `new` throws; a string that cannot be assigned is then empty,
// and one that cannot be edited is as it was. Two threads may use two strings.
#ifndef PLINTH_DSSTRING_H
#define PLINTH_DSSTRING_H

#include <cstddef>
#include <cstring>
#include <iosfwd>
#include <type_traits>

#include <string.h> // ::strpbrk(char*, const char*), which belongs to the functions at the end

#include "outside/strstream.h"
#include "outside/varnholt/text.h"
#include "outside/zelexport.h"

/// Whatever has a zero-terminated text.
class ZEL_EXPORT dsBaseString {
public:
    virtual ~dsBaseString();
    virtual operator const char*() const = 0; ///< the text

    unsigned int GetLength() const; ///< bytes before the NUL; 0 for a text that is null
    bool IsEmpty() const;           ///< no byte before the NUL. Requires: the text is not null.

protected:
    dsBaseString() = default;
    dsBaseString(const dsBaseString&) = default;
    dsBaseString& operator=(const dsBaseString&) = default;
};

/// Inserts the text; nothing for one that is null.
ZEL_EXPORT std::ostream& operator<<(std::ostream& os, const dsBaseString& s);

/// A text of its own. Compare with std::strcmp; `==` compares addresses. A null text counts as the
/// empty one, wherever nothing else is said.
class ZEL_EXPORT dsString : public dsBaseString {
public:
    dsString();
    dsString(const char* s);  ///< a copy of `s`; null is the empty text
    dsString(std::nullptr_t); ///< the empty text
    /// The text of `a` with that of `b` behind it; either may be null.
    dsString(const char* a, const char* b);
    /// The first `maxLength` bytes of `s`, or all of them.
    dsString(const char* s, unsigned int maxLength);
    /// A literal 0 is a number here; without this it could be a null pointer as well.
    template <typename Int, typename = std::enable_if_t<std::is_same_v<Int, int>>>
    dsString(const char* s, Int maxLength) : dsString(s, static_cast<unsigned int>(maxLength)) {}
    /// The native form of `w`; an empty string for text that the locale cannot express.
    dsString(const wchar_t* w);
    dsString(const dsString&) = delete;
    ~dsString() override;

    operator const char*() const override { return text; }

    /// Requires: `s` is not in this string, whose buffer goes first.
    dsString& operator=(const char* s);
    dsString& operator=(const dsString& other); ///< a copy
    /// Takes the characters of `stream` up to its end or its first NUL, which is taken as well.
    dsString& operator=(std::strstream& stream);
    dsString& operator+=(const char* s); ///< appends; null appends nothing
    /// Appends one byte; NUL, also as a literal 0, appends nothing.
    dsString& operator+=(char c);
    /// A literal 0 is a byte here; without this it could be a null pointer as well.
    template <typename Int, typename = std::enable_if_t<std::is_same_v<Int, int>>>
    dsString& operator+=(Int c) {
        return *this += static_cast<char>(c);
    }

    /// Replaces the bytes from the lower of two positions up to and without the higher one. False
    /// if there is nothing to do: no range, and `s` null or empty.
    ///
    /// Requires: no position is beyond the end.
    bool Replace(unsigned int from, unsigned int to, const char* s);
    /// Replaces up to `maxCount` occurrences of `find` (0 or less: 1,000,000) from the left, which
    /// do not overlap. What comes in is not searched. Gives the number of replacements.
    ///
    /// Requires: `find` is not empty, neither text is null.
    int ReplaceSubStr(const char* find, const char* with, int maxCount);

private:
    friend struct OwnedText; // of the library alone

    static char* StrEmpty();
    static char* StrNew(const char* s);
    static char* Concatenate(const char* a, const char* b);
    void Cleanup();

    /// The shared empty text, or a buffer from new[] that this string owns.
    char* text;
};

/// A new string with `right`, which may be null, behind `left`.
[[nodiscard]] ZEL_EXPORT dsString operator+(const dsString& left, const char* right);

/// A copy of a text in a buffer of exactly its size.
class ZEL_EXPORT dscharStr {
public:
    /// A null `s` gives a buffer of one byte that holds no text.
    explicit dscharStr(const char* s);
    dscharStr(const dscharStr&) = delete;
    dscharStr& operator=(const dscharStr&) = delete;
    ~dscharStr();

    char* GetBuffer() const { return buffer; } ///< the caller may write to it, and does not own it

private:
    char* buffer;
};

/// The base in which ToString writes. Any other value is decimal, too.
enum ToStringOptions : int {
    ToStringDecimal = 0, ///< base 10
    ToStringOctal = 1,   ///< base 8
    ToStringHex = 2,     ///< base 16
};

/// Writes `value` as a stream would under the global locale: no prefix, lower-case digits, and a
/// negative number in octal or hexadecimal as its bit pattern.
ZEL_EXPORT void ToString(int value, dsString& text, ToStringOptions options);
/// The same for a number without sign.
ZEL_EXPORT void ToString(unsigned int value, dsString& text, ToStringOptions options);

/// Makes `s` fit for a delimited list: each `delimiter` in it is doubled. Null gives the empty
/// text. A list cannot hold every token: behind a delimiter, one that is empty or begins with a
/// delimiter would read as a part of the token before it.
///
/// With a comma between, the tokens "a,b" and "c" make the list "a,,b,c".
///
/// Requires, for both: `s` is not the text of `token`, and `delimiter` is not NUL.
ZEL_EXPORT void dsMkToken(const char* s, dsString& token, char delimiter);
/// Takes the first token off the list `s` and gives the place where the next one begins, null at
/// the end of the list. A list that ends in a single delimiter has no empty token behind it.
ZEL_EXPORT const char* dsGetNextToken(const char* s, dsString& token, char delimiter);

/// The environment variable `name`; false, and `value` untouched, if there is none.
ZEL_EXPORT bool Getenv(const char* name, dsString& value);

// The standard functions of these names, which allow no null.
ZEL_EXPORT char* Strcpy(char* target, const char* source); ///< `target` has room for `source`
ZEL_EXPORT char* Strcat(char* target, const char* source); ///< `target` has room for both
ZEL_EXPORT char* Strchr(const char* s, int c);             ///< the first `c`, or null
ZEL_EXPORT char* Strstr(const char* s, const char* find);  ///< the first `find`, or null

/// The bytes that `s` occupies, its terminator included.
ZEL_EXPORT int Strbytes(const char* s);

/// memcpy of `count` elements, which are copied as bytes.
template <typename T>
T* MemCpy(T* target, const T* source, unsigned int count) {
    std::memcpy(target, source, count * sizeof(T));
    return target;
}

#endif
