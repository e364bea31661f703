// SPDX-License-Identifier: MIT
//
// The operations on the bytes of a file. They use blocks on the stack, and none of the heap.
#include <cstring>

#include "files/filehandle.h"
#include "outside/varnholt/text.h"
#include "outside/win32/pipes.h"
#include "pfufs.h"

namespace {

constexpr unsigned int blockSize = 32768;

/// Writes through a block, so that small pieces are cheap. Bytes that the system did not take are
/// lost, and whoever goes on goes on behind them.
class Output {
public:
    explicit Output(void* opened) : handle(opened) {}

    [[nodiscard]] bool Write(const char* data, std::size_t size) {
        bool written = true;
        while (size != 0) {
            if (used == blockSize)
                written = Flush() && written;
            const std::size_t part = size < blockSize - used ? size : blockSize - used;
            std::memcpy(block + used, data, part);
            used += static_cast<unsigned int>(part);
            data += part;
            size -= part;
        }
        return written;
    }
    [[nodiscard]] bool Flush() {
        unsigned int put = 0;
        const unsigned int waiting = used;
        used = 0;
        return waiting == 0 || (WriteFile(handle, block, waiting, &put, nullptr) && put == waiting);
    }

private:
    void* handle;
    unsigned int used = 0;
    char block[blockSize];
};

} // namespace

errstatus pfuFS::pfuCalcCheckSumByPath(const char* path, unsigned int& checksum) {
    const files::FileHandle file(files::OpenSource(path));
    if (!file.IsOpen())
        return errFailed;
    unsigned int count = 0;
    unsigned char sum = 0, parity = 0;
    for (;;) {
        alignas(64) unsigned char block[2 * blockSize];
        unsigned int got;
        if (!ReadFile(file.Get(), block, sizeof block, &got, nullptr))
            return errFailed;
        if (got == 0)
            break;
        count += got;
        for (unsigned int i = 0; i < got; ++i) {
            sum = static_cast<unsigned char>(sum + block[i]);
            parity ^= block[i];
        }
    }
    checksum = (count & 0xFFFF) << 16 | static_cast<unsigned int>(sum) << 8 | parity;
    return errOK;
}

errstatus pfuFS::pfuReplaceString(const char* const oldText, const char* const newText,
                                  const char* from, const char* to) {
    constexpr std::size_t longest = 4095;
    const auto oldLength = static_cast<std::size_t>(Strlen(oldText));
    const auto newLength = static_cast<std::size_t>(Strlen(newText));
    if (oldLength == 0 || oldLength > longest)
        return errFailed;
    const files::FileHandle source(files::OpenSource(from));
    if (!source.IsOpen())
        return errFailed;
    const files::FileHandle target(files::OpenTarget(to));
    if (!target.IsOpen())
        return errFailed;

    errstatus status = errOK;
    Output output(target.Get());
    char block[blockSize];
    // The last bytes of a pass, fewer than an occurrence has, stay for the next one: what begins
    // in them may end in what follows.
    std::size_t carried = 0;
    for (;;) {
        unsigned int got;
        if (!ReadFile(source.Get(), block + carried, static_cast<unsigned int>(blockSize - carried),
                      &got, nullptr)) {
            status = errFailed;
            break;
        }
        if (got == 0)
            break;
        const char* cursor = block;
        const char* const end = block + carried + got;
        const auto left = [&] { return static_cast<std::size_t>(end - cursor); };
        while (const void* const found = memmem(cursor, left(), oldText, oldLength)) {
            const char* const occurrence = static_cast<const char*>(found);
            if (!output.Write(cursor, static_cast<std::size_t>(occurrence - cursor)) ||
                !output.Write(newText, newLength)) {
                status = errFailed;
                break;
            }
            cursor = occurrence + oldLength;
        }
        carried = left() < oldLength ? left() : oldLength - 1;
        if (!output.Write(cursor, left() - carried)) {
            status = errFailed;
            break;
        }
        std::memmove(block, end - carried, carried);
    }
    const bool rest = output.Write(block, carried);
    return output.Flush() && rest ? status : errFailed;
}
