// SPDX-License-Identifier: MIT
#include "posix/keeploaded.h"

#include <dlfcn.h>
#include <link.h>

#include "posix/syscalls.h"

namespace posix {

void KeepLoaded() {
    static constexpr char here = 0;
    const sys::KeepErrno keep;
    Dl_info info{};
    void* found = nullptr;
    if (dladdr1(&here, &info, &found, RTLD_DL_LINKMAP) == 0 || found == nullptr)
        return;
    // The program itself stays anyway, and it alone has no name.
    const char* const name = static_cast<const link_map*>(found)->l_name;
    if (*name != '\0')
        static_cast<void>(dlopen(name, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE));
}

} // namespace posix
