// SPDX-License-Identifier: MIT
//
// The stream over a socket of the system: the one implementation of psockStream.
#ifndef PLINTH_PSOCKSTREAMIMPL_H
#define PLINTH_PSOCKSTREAMIMPL_H

#include "psock.h"

constexpr unsigned int noSocket = static_cast<unsigned int>(-1);

/// A socket as the system's calls take it.
inline int Descriptor(unsigned int socket) {
    return static_cast<int>(socket);
}

/// Owns its descriptor.
class psockStreamImpl final : public psockStream {
public:
    explicit psockStreamImpl(unsigned int socket);
    ~psockStreamImpl() override;

    int Read(void* data, int length, bool flag) override;
    int Write(const void* data, int length, bool flag) override;
    bool Exception() override;
    int Select(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* wait) override;
    int SelectWait(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* wait) override;
    errstatus getErr() override;
    unsigned int getSock() override;
    void CloseSocket() override;

    /// Write, for two blocks as one and without a flag.
    int WriteBoth(const void* first, int firstLength, const void* second, int secondLength);

private:
    unsigned int socket;
    errstatus error;
};

#endif
