// SPDX-License-Identifier: MIT
//
// order_main [WAY]: does nothing by itself; what is linked with it does. WAY is how it ends:
// "return" (the default), "exit", or "thread", when another thread calls exit.
#include "torture/order/unit.h"

namespace {

struct Leaver : pmThread {
    unsigned int ThreadRun() override { std::exit(0); }
};

} // namespace

int main(int argc, char** argv) {
    const char* const way = argc > 1 ? argv[1] : "return";
    order::UseEverything();
    order::Tell('m');
    if (std::strcmp(way, "exit") == 0)
        std::exit(0);
    if (std::strcmp(way, "thread") == 0) {
        static Leaver leaver;
        order::Require(leaver.Start(), "the last thread");
        for (;;)
            pause();
    }
}
