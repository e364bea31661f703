// SPDX-License-Identifier: MIT
#include "content.h"

#include <pfufs.h>

#include <outside/win32/files.h>

#include "names.h"
#include "pinned.h"
#include "profile.h"

namespace fileserv {

namespace {

/// The system's reason for a failure just now, and never success.
errstatus Reason() {
    const errstatus reason = errMapError();
    return reason == errOK ? errFailed : reason;
}

} // namespace

errstatus Source::Open(const char* path, bool followLinks) {
    ProfilePoint point(&Profile::Reading());
    PinnedFile pinned;
    const errstatus status = pinned.Find(path, followLinks);
    if (status != errOK)
        return status;
    return pfuFS::pfuOpenStream(pinned.Path(), std::ios_base::in | std::ios_base::binary, file);
}

int Source::Read(char* bytes, int size) {
    ProfilePoint point(&Profile::Reading());
    file.read(bytes, size);
    return file.bad() ? -1 : static_cast<int>(file.gcount());
}

errstatus Replacement::Open(const char* path) {
    ProfilePoint point(&Profile::Writing());
    static unsigned int made = 0;
    const std::string native = Native(path);
    if (native.empty())
        return errNameTooLong;
    if (pfuFS::pfuIsDir(path))
        return errIsDirectory;
    const std::size_t separator = native.rfind('/');
    const std::string folder =
        separator == std::string::npos ? std::string() : native.substr(0, separator + 1);
    PinnedFile pinned;
    errstatus status = errExists; // a name may be left by a process that was killed
    while (status == errExists) {
        unfinished = folder + ownPrefix + '-' + std::to_string(GetCurrentProcessId()) + '-' +
                     std::to_string(++made);
        status = pinned.Make(unfinished.c_str());
    }
    if (status == errOK)
        status =
            pfuFS::pfuOpenStream(pinned.Path(), std::ios_base::out | std::ios_base::binary, file);
    else
        unfinished.clear();
    target = native;
    return status;
}

errstatus Replacement::Write(const char* bytes, int size) {
    ProfilePoint point(&Profile::Writing());
    return file.write(bytes, size) ? errOK : Reason();
}

errstatus Replacement::Commit() {
    ProfilePoint point(&Profile::Writing());
    if (unfinished.empty())
        return errFailed;
    file.close();
    if (!file)
        return Reason();
    const errstatus status = pfuFS::pfuRenameFile(unfinished.c_str(), target.c_str());
    if (status == errOK)
        unfinished.clear();
    return status;
}

void Replacement::Discard() {
    if (unfinished.empty())
        return;
    file.close();
    pfuFS::pfuDeleteFile(unfinished.c_str());
    unfinished.clear();
}

errstatus SumOf(const char* path, bool followLinks, Sum& sum) {
    ProfilePoint point(&Profile::Summing());
    PinnedFile pinned;
    const errstatus status = pinned.Find(path, followLinks);
    if (status != errOK)
        return status;
    Sum found;
    found.size = pinned.Size();
    if (pfuFS::pfuCalcCheckSumByPath(pinned.Path(), found.checksum) != errOK)
        return Reason();
    sum = found;
    return errOK;
}

errstatus SendBlocks(Connection& connection, Source& source, const Moved& moved) {
    dsXArray<char> block(nullptr);
    for (;;) {
        Encoder(block).out << static_cast<int>(errOK);
        block.Resize(statusBytes + largestBlock);
        const int got = source.Read(block.GetDataPtr() + statusBytes, largestBlock);
        block.Resize(static_cast<unsigned int>(statusBytes + (got > 0 ? got : 0)));
        if (got < 0)
            Encoder(block).out << static_cast<int>(errIO);
        const errstatus status = connection.Send(block);
        if (status != errOK || got <= 0)
            return status != errOK ? status : got < 0 ? errIO : errOK;
        if (moved)
            moved(got);
    }
}

errstatus ReceiveBlocks(Connection& connection, Replacement& target, const Moved& moved) {
    dsXArray<char> block(nullptr);
    errstatus written = errOK;
    for (;;) {
        const errstatus received = connection.Receive(block, statusBytes + largestBlock);
        if (received != errOK)
            return received;
        int status = errNone;
        if (!(Decoder(block).in >> status).good()) {
            connection.GiveUp();
            return errInvalid;
        }
        const int size = static_cast<int>(block.GetSize()) - statusBytes;
        if (status != errOK)
            return static_cast<errstatus>(status);
        if (size == 0)
            return written;
        if (written == errOK)
            written = target.Write(block.GetDataPtr() + statusBytes, size);
        if (moved)
            moved(size);
    }
}

} // namespace fileserv
