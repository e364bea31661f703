// SPDX-License-Identifier: MIT
//
// Objects that are made before those of all other files, wherever they are linked.
#include "torture/order/unit.h"

namespace {
[[gnu::init_priority(101)]] const order::Late first;
[[gnu::init_priority(102)]] const order::Whole second;
} // namespace
