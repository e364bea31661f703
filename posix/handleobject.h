// SPDX-License-Identifier: MIT
//
// What a handle that is no descriptor points to.
#ifndef PLINTH_POSIX_HANDLEOBJECT_H
#define PLINTH_POSIX_HANDLEOBJECT_H

#include <optional>

#include "posix/polling.h"

namespace posix {

/// A system object behind an even handle word. Whoever holds the handle closes it once; what that
/// means for the object (a thread may still run) is the object's own business.
class HandleObject {
public:
    HandleObject() = default;
    HandleObject(const HandleObject&) = delete;
    HandleObject& operator=(const HandleObject&) = delete;
    virtual ~HandleObject() = default;
    virtual void ReleaseHandle() = 0;
    /// True when the object stands signalled or came to do so in time, false when it did not;
    /// nothing for an object that cannot be waited for.
    virtual std::optional<bool> Wait(const Deadline&) { return std::nullopt; }
};

} // namespace posix

#endif
