// SPDX-License-Identifier: MIT
#include "outside/quillmarsh/memory.h"

#include "costs.h"

namespace {

using namespace costs;

void OneBlock() {
    Count([] { zelFree(zelAlloc(100)); });
}

void GrowInSteps() {
    void* block = nullptr;
    Count([&] { zelFree(block), block = zelAlloc(256); },
          [&] {
              for (unsigned int size = 512; size <= 64 * 1024; size += 256)
                  block = zelReAlloc(block, size);
          });
}

const Row rows[] = {
    {"zelAlloc and zelFree of 100 bytes", OneBlock},
    {"zelReAlloc of a block from 256 bytes to 64 KiB in 255 steps", GrowInSteps},
};

} // namespace

const Family costs::memory{"Memory", rows};
