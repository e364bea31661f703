// SPDX-License-Identifier: MIT
#include "connection.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <psockmsg.h>

#include "profile.h"

namespace fileserv {

namespace {

constexpr int prefixBytes = 4;
constexpr long step = 100000; // microseconds between two looks at the stop event

/// A socket that takes anything takes this much without blocking.
constexpr int portion = 4096;

} // namespace

Connection::Connection(std::unique_ptr<psockStream> socket, std::chrono::seconds limit,
                       zelService* stoppable)
    : stream(std::move(socket)), patience(limit), service(stoppable) {}

errstatus Connection::Receive(dsXArray<char>& message, int largest) {
    ProfilePoint point(&Profile::Receiving());
    message.Clear();
    allowed = static_cast<long long>(largest) + prefixBytes;
    const errstatus status = Begin() ? ::Read(*this, message) : getErr();
    usable = usable && status == errOK;
    return status;
}

errstatus Connection::Send(dsXArray<char>& message) {
    ProfilePoint point(&Profile::Sending());
    const errstatus status = Begin() ? ::Write(*this, message) : getErr();
    usable = usable && status == errOK;
    return status;
}

/// Takes from the socket what it has, and hands that out in the portions that are asked for.
int Connection::Read(void* data, int length, bool flag) {
    if (allowed == 0) {
        Fail(errTooLarge);
        return -1;
    }
    if (unread == 0) {
        const int got = Await(false) ? stream->Read(received, sizeof received, flag) : -1;
        if (got <= 0)
            return got;
        place = 0;
        unread = got;
    }
    const int given = static_cast<int>(std::min<long long>({length, unread, allowed}));
    std::memcpy(data, received + place, static_cast<std::size_t>(given));
    place += given;
    unread -= given;
    allowed -= given;
    return given;
}

int Connection::Write(const void* data, int length, bool flag) {
    return Await(true) ? stream->Write(data, std::min(length, portion), flag) : -1;
}

/// At the start of a message: also who never has to wait is stopped here.
bool Connection::Begin() {
    deadline = Clock::now() + patience;
    return service == nullptr || !service->IsStopSignaled() || Fail(errInterrupted);
}

bool Connection::Await(bool toWrite) {
    for (;;) {
        fd_set set;
        timeval wait{0, step};
        const int ready = toWrite ? stream->SelectWait(nullptr, &set, nullptr, &wait)
                                  : stream->SelectWait(&set, nullptr, nullptr, &wait);
        if (ready > 0)
            return true;
        if (ready < 0)
            return Fail(errMapError());
        if (service != nullptr && service->IsStopSignaled())
            return Fail(errInterrupted);
        if (Clock::now() >= deadline)
            return Fail(errTimedOut);
    }
}

/// Records why; gives false.
bool Connection::Fail(errstatus reason) {
    error = reason;
    return false;
}

} // namespace fileserv
