// SPDX-License-Identifier: MIT
#include "outside/quillmarsh/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <thread>

#include <malloc.h>

// The sanitizers' allocators report a hopeless size as a fault unless they are told otherwise.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

class Block {
public:
    Block() = default;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() { zelFree(data); }
    /// Bytes that have to move if the address is another one.
    std::size_t Resize(std::size_t newSize) {
        const auto before = reinterpret_cast<std::uintptr_t>(data);
        const std::size_t old = std::exchange(size, newSize);
        data = static_cast<char*>(zelReAlloc(data, newSize));
        return reinterpret_cast<std::uintptr_t>(data) != before ? old : 0;
    }
    char* data = nullptr;
    std::size_t size = 0;
};

TEST(Memory, AppendingInSmallStepsIsLinearInEveryThread) {
    const std::size_t step = 400, end = 2 << 20;
    const auto append = [&] {
        // Two blocks that grow in turn are in each other's way.
        Block first, second;
        std::size_t moved = 0;
        for (std::size_t size = step; size <= end; size += step)
            moved += first.Resize(size) + second.Resize(size);
        EXPECT_LE(moved, 3 * 2 * end); // a geometric series with the factor 1.5
    };
    append();
    std::thread(append).join();
}

TEST(Memory, KeepsContentsAndGivesBackWhatIsNotNeeded) {
    std::mt19937 random(8);
    Block block;
    std::string model;
    for (int i = 0; i < 1000; ++i) {
        const std::size_t size = random() % 3000 >> random() % 8, old = model.size();
        model.resize(size, static_cast<char>(i));
        block.Resize(size);
        if (size > old)
            std::memset(block.data + old, i, size - old);
        ASSERT_EQ(block.data == nullptr, size == 0);
        ASSERT_EQ(std::string(block.data, block.data + size), model);
    }
    block.Resize(16 << 20);
    block.Resize(1000);
    EXPECT_LT(malloc_usable_size(block.data), 4096u);
    EXPECT_EQ(zelAlloc(0), nullptr);
    zelFree(nullptr);
}

TEST(Memory, ExhaustionIsThatOfNew) {
    static int asked;
    asked = 0;
    Block block;
    block.Resize(5);
    std::memcpy(block.data, "hello", 5);
    std::set_new_handler([] {
        if (++asked == 2)
            std::set_new_handler(nullptr);
    });
    EXPECT_THROW(static_cast<void>(zelAlloc(PTRDIFF_MAX - 4096)), std::bad_alloc);
    EXPECT_EQ(asked, 2);
    EXPECT_THROW(static_cast<void>(zelAlloc(SIZE_MAX)), std::bad_alloc);
    EXPECT_THROW(static_cast<void>(zelReAlloc(block.data, PTRDIFF_MAX - 4096)), std::bad_alloc);
    EXPECT_THROW(static_cast<void>(zelReAlloc(block.data, SIZE_MAX)), std::bad_alloc);
    EXPECT_THROW(zelOutOfMemory(), std::bad_alloc);
    EXPECT_EQ(std::string(block.data, 5), "hello");
}

} // namespace
