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

TEST(Memory, AppendingInSmallStepsIsLinearInEveryThread) {
    const std::size_t step = 400, end = 2 << 20;
    const auto append = [&] {
        // Two blocks that grow in turn are in each other's way.
        void* blocks[2] = {};
        std::size_t moved = 0;
        for (std::size_t size = step; size <= end; size += step)
            for (void*& block : blocks) {
                const auto before = reinterpret_cast<std::uintptr_t>(block);
                block = zelReAlloc(block, size);
                moved += reinterpret_cast<std::uintptr_t>(block) != before ? size : 0;
            }
        EXPECT_LE(moved, 2 * 3 * end); // a geometric series with the factor 1.5
        for (void* block : blocks)
            zelFree(block);
    };
    append();
    std::thread(append).join();
}

TEST(Memory, KeepsContentsAndGivesBackWhatIsNotNeeded) {
    std::mt19937 random(8);
    char* block = nullptr;
    std::string model;
    for (int i = 0; i < 1000; ++i) {
        const std::size_t size = random() % 3000 >> random() % 8, old = model.size();
        model.resize(size, static_cast<char>(i));
        block = static_cast<char*>(zelReAlloc(block, size));
        if (size > old)
            std::memset(block + old, i, size - old);
        ASSERT_EQ(std::string(block, block + size), model);
    }
    block = static_cast<char*>(zelReAlloc(zelReAlloc(block, 16 << 20), 1000));
    EXPECT_LT(malloc_usable_size(block), 4096u);
    EXPECT_EQ(zelReAlloc(block, 0), nullptr);
    EXPECT_EQ(zelAlloc(0), nullptr);
    zelFree(nullptr);
}

TEST(Memory, ExhaustionIsThatOfNew) {
    static int asked;
    asked = 0;
    const std::size_t hopeless = PTRDIFF_MAX - 4096;
    void* volatile first = std::malloc(hopeless); // 32 bits have room for one
    char* const block = static_cast<char*>(zelAlloc(5));
    std::strcpy(block, "hell");
    std::set_new_handler(
        [] { std::set_new_handler(++asked == 2 ? nullptr : std::get_new_handler()); });
    EXPECT_THROW(static_cast<void>(zelAlloc(hopeless)), std::bad_alloc);
    EXPECT_EQ(asked, 2);
    for (const std::size_t size : {hopeless, SIZE_MAX})
        EXPECT_THROW(static_cast<void>(zelReAlloc(block, size)), std::bad_alloc);
    EXPECT_STREQ(block, "hell");
    zelFree(block);
    std::free(first);
}

} // namespace
