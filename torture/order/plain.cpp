// SPDX-License-Identifier: MIT
#include "torture/order/unit.h"

namespace {
const order::Late first;
const order::Whole second;
} // namespace
