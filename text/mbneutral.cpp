// SPDX-License-Identifier: MIT
#include "mbconv.h"

#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "outside/quillmarsh/console.h"
#include "outside/quillmarsh/multibyte.h"
#include "outside/quillmarsh/sameform.h"
#include "outside/varnholt/text.h"

namespace {

constexpr std::size_t listSize = 4096;
constexpr std::size_t unconvertible = static_cast<std::size_t>(-1);

struct BlockDeleter {
    void operator()(void* block) const { operator delete(block); }
};
/// A text in the making: what the caller gets is a raw block from `operator new`.
template <typename Char>
using Block = std::unique_ptr<Char[], BlockDeleter>;

/// Room for `count` characters. A size that cannot be expressed fails in `new`.
template <typename Char>
Block<Char> NewBlock(std::size_t count) {
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    const std::size_t bytes = count > most / sizeof(Char) ? most : count * sizeof(Char);
    return Block<Char>(static_cast<Char*>(operator new(bytes)));
}

/// A copy of `length` bytes, with a NUL behind them.
Block<char> NewCopy(const char* text, std::size_t length) {
    Block<char> copy = NewBlock<char>(length + 1);
    std::memcpy(copy.get(), text, length);
    copy[length] = 0;
    return copy;
}

/// Copies the character at the pointer, alone, into a text of its own.
bool TakeCharacter(const char* character, char (&text)[8]) {
    const int bytes = zel_mbtowc(nullptr, character, 4);
    if (bytes < 0)
        return false;
    std::memcpy(text, character, static_cast<std::size_t>(bytes));
    text[bytes] = 0;
    return true;
}

} // namespace

char* mbxNativeToNeut(char const* native) {
    const std::size_t length = std::strlen(native);
    if (zelSameForm(native, length))
        return NewCopy(native, length).release();
    if (char* const neutral = zelShortWayToNeut(native, length))
        return neutral;
    const std::size_t count = zel_mbstowcs(nullptr, native, length);
    if (count == unconvertible)
        return nullptr;
    const Block<wchar_t> wide = NewBlock<wchar_t>(count + 1);
    if (zel_mbstowcs(wide.get(), native, length) == unconvertible)
        return nullptr;
    wide[count] = 0;
    Block<char> neutral = NewBlock<char>(4 * count + 1);
    mbxWideToNeut(neutral.get(), wide.get());
    return neutral.release();
}

char* mbxNeutToNative(char const* neutral) {
    const std::size_t length = std::strlen(neutral);
    if (zelSameForm(neutral, length))
        return NewCopy(neutral, length).release();
    if (char* const native = zelShortWayToNative(neutral, length))
        return native;
    const Block<wchar_t> wide = NewBlock<wchar_t>(length + 2);
    mbxNeutToWide(neutral, wide.get());
    const std::size_t count = zel_wcstombs(nullptr, wide.get(), length + 1);
    if (count == unconvertible)
        return nullptr;
    Block<char> native = NewBlock<char>(count + 2);
    if (zel_wcstombs(native.get(), wide.get(), count + 2) == unconvertible)
        return nullptr;
    native[count] = 0;
    return native.release();
}

char* mbcNativeToNeut(char const* character) {
    char text[8];
    return TakeCharacter(character, text) ? mbxNativeToNeut(text) : nullptr;
}

char* mbcNeutToNative(char const* character) {
    char text[8];
    return TakeCharacter(character, text) ? mbxNeutToNative(text) : nullptr;
}

char* mbxNativeToNeut(char const* block, int length) {
    Block<char> list = NewBlock<char>(listSize);
    list[0] = 0;
    if (length < 1)
        return list.release();
    // The last piece need not have a NUL of its own in the block.
    const std::size_t size = static_cast<std::size_t>(length);
    const Block<char> pieces = NewCopy(block, size);
    std::size_t held = 0;
    for (std::size_t at = 0; at <= size; at += std::strlen(&pieces[at]) + 1) {
        const Block<char> neutral(mbxNativeToNeut(&pieces[at]));
        if (!neutral)
            return nullptr;
        const std::size_t added = std::strlen(neutral.get());
        if (held + added + 2 > listSize) {
            zel_printf("mbxNativeToNeut:Cannot handle strings longer than %d",
                       static_cast<int>(listSize));
            return nullptr;
        }
        std::memcpy(&list[held], neutral.get(), added + 1);
        held += added + 1;
        list[held] = 0;
    }
    return list.release();
}
