// SPDX-License-Identifier: MIT
#include <cstring>
#include <new>

#include "outside/quillmarsh/sockets.h"
#include "sockets/psockstreamimpl.h"

namespace {

constexpr unsigned int maxHostName = 1025;

using AddressQuery = int (*)(int socket, sockaddr* address, socklen_t* length);

/// The host name of the end that `query` gives the address of.
bool NameOfEnd(unsigned int socket, AddressQuery query, char (&name)[maxHostName]) {
    sockaddr_in6 room; // the larger kind of address
    auto* address = reinterpret_cast<sockaddr*>(&room);
    socklen_t length = sizeof room;
    return query(Descriptor(socket), address, &length) == 0 &&
           zel_get_nodenameinfo(address, name, maxHostName, nullptr, 0, 0) == 0;
}

void AskOnly(unsigned int socket, fd_set* set) {
    if (set == nullptr)
        return;
    fds_zero(set);
    fds_set(socket, set);
}

} // namespace

psockStream::~psockStream() = default;

void psockStream::Initialize() {}

void psockStream::Shutdown() {}

bool psockStream::IsOnTheSameMachine() {
    const unsigned int socket = getSock();
    char local[maxHostName];
    char peer[maxHostName];
    return NameOfEnd(socket, zel_getsockname, local) && NameOfEnd(socket, zel_getpeername, peer) &&
           std::strcmp(local, peer) == 0;
}

psockStreamImpl::psockStreamImpl(unsigned int taken) : socket(taken), error(errOK) {}

psockStreamImpl::~psockStreamImpl() {
    CloseSocket();
}

int psockStreamImpl::Read(void* data, int length, bool flag) {
    const int received = zel_recv(Descriptor(socket), data, length, flag ? 1 : 0);
    if (received > 0)
        return received;
    error = errMapError();
    return -1;
}

int psockStreamImpl::Write(const void* data, int length, bool flag) {
    const int sent = zel_send(Descriptor(socket), data, length, flag ? 1 : 0);
    if (sent == -1)
        error = errMapError();
    return sent;
}

int psockStreamImpl::WriteBoth(const void* first, int firstLength, const void* second,
                               int secondLength) {
    const int sent = zel_send_both(Descriptor(socket), first, firstLength, second, secondLength);
    if (sent == -1)
        error = errMapError();
    return sent;
}

bool psockStreamImpl::Exception() {
    fd_set set;
    AskOnly(socket, &set);
    const timeval wait{0, 0};
    return fds_select(socket, nullptr, nullptr, &set, &wait) != 0;
}

int psockStreamImpl::Select(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* wait) {
    wait->tv_sec = 0;
    wait->tv_usec = 10;
    return SelectWait(readSet, writeSet, exceptSet, wait);
}

int psockStreamImpl::SelectWait(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet,
                                timeval* wait) {
    AskOnly(socket, readSet);
    AskOnly(socket, writeSet);
    AskOnly(socket, exceptSet);
    return fds_select(socket, readSet, writeSet, exceptSet, wait);
}

errstatus psockStreamImpl::getErr() {
    return error;
}

unsigned int psockStreamImpl::getSock() {
    return socket;
}

void psockStreamImpl::CloseSocket() {
    if (socket == noSocket)
        return;
    zel_closesocket(Descriptor(socket));
    socket = noSocket;
}

// The stream is asked for its socket only once there is a base event to give it to.
zelSocketEvent::zelSocketEvent(psockStream* watched, Type wanted)
    : zelEvent(new (std::nothrow) zelSelectEvent(watched->getSock(), wanted)), stream(watched),
      type(wanted) {}

psockStream* zelSocketEvent::GetSockStream() {
    return stream;
}

int zelSocketEvent::GetKind() {
    return eventKind;
}

void* zelSocketEvent::GetInfo() {
    return this;
}

zelSocketEvent* zelSocketEvent::cast(zelEvent* event) {
    return event->GetKind() == eventKind ? static_cast<zelSocketEvent*>(event->GetInfo()) : nullptr;
}
