// SPDX-License-Identifier: MIT
#include "service.h"

#include <cstring>
#include <memory>
#include <vector>

#include <pfudir.h>
#include <pfufs.h>

#include "content.h"
#include "names.h"
#include "profile.h"

namespace fileserv {

namespace {

bool Exists(const char* name) {
    return pfStat(pfuDirPath(name)).initialized();
}

/// What a listing tells of a name in the current folder.
Entry Describe(const char* name) {
    Entry entry;
    entry.name = CanTravel(name) ? name : Quoted(name);
    if (!CanTravel(name)) {
        entry.kind = Unnameable;
        return entry;
    }
    const pfStat info{pfuDirPath(name)};
    entry.kind = info.isLink() ? Link : info.isDir() ? Folder : File;
    if (entry.kind == File)
        entry.size = info.fileSize();
    if (entry.kind != Link) // what it leads to may lie outside
        entry.modified = info.modTime();
    return entry;
}

} // namespace

void FileService::Serve(Connection& connection) {
    NamedLocks locks(folder.Path());
    while (connection.IsUsable() && connection.Receive(message, largestRequest) == errOK) {
        Request request;
        if (DecodeRequest(message, request))
            Answer(request, locks, connection);
        else
            SendStatus(errInvalid, connection);
    }
}

void FileService::Answer(const Request& request, NamedLocks& locks, Connection& connection) {
    if (request.operation == Lock)
        return SendStatus(locks.Take(request.path), connection);
    if (request.operation == Unlock)
        return SendStatus(locks.GiveBack(request.path), connection);
    errstatus status;
    pfuDirEntry entry;
    {
        ProfilePoint point(&Profile::Looking());
        status = folder.Enter(request.path, entry);
    }
    if (status != errOK)
        return SendStatus(status, connection);
    const char* const name = entry;
    const bool root = std::strcmp(name, ".") == 0;
    switch (request.operation) {
    case List:
        status = MakeListing(request);
        break;
    case Stat:
        status = TellOf(name);
        break;
    case Checksum:
        status = TellSum(name);
        break;
    case Fetch:
        return SendFile(name, connection);
    case Put:
        status = TakeFile(name, connection);
        break;
    case MakeFolder:
        status = pfuFS::pfuMakeDir(name);
        break;
    case RemoveFolder:
        status = root ? errNoAccess : pfuFS::pfuRemoveDir(name);
        break;
    case RemoveTree:
        status = root ? errNoAccess : pfuFS::pfuRemoveDirRec(pfuDirPath(name));
        break;
    default:
        status = errNotSupported;
    }
    const bool told =
        request.operation == List || request.operation == Stat || request.operation == Checksum;
    if (told && status == errOK)
        connection.Send(message);
    else
        SendStatus(status, connection);
}

errstatus FileService::MakeListing(const Request& request) {
    ProfilePoint point(&Profile::Looking());
    if (request.argument.empty())
        return errInvalid;
    const errstatus status = folder.EnterFolder(request.path);
    if (status != errOK)
        return status;
    const std::unique_ptr<pfuDir> directory(pfuDir::OpenDir(pfuDirPath(".")));
    if (directory == nullptr)
        return errMapError();
    std::vector<Entry> entries;
    for (pfuDirEntry found; directory->ReadNextMatching(found, request.argument.c_str());)
        if (!IsOwn(found))
            entries.push_back(Describe(found));
    Encoder answer(message);
    answer.out << static_cast<int>(errOK) << static_cast<int>(entries.size());
    for (const Entry& entry : entries)
        PutEntry(answer.out, entry);
    return errOK;
}

errstatus FileService::TellOf(const char* name) {
    ProfilePoint point(&Profile::Looking());
    if (!Exists(name))
        return errNotFound;
    Encoder answer(message);
    answer.out << static_cast<int>(errOK);
    PutEntry(answer.out, Describe(name));
    return errOK;
}

errstatus FileService::TellSum(const char* name) {
    Sum sum;
    const errstatus status = SumOf(name, false, sum);
    if (status != errOK)
        return status;
    Encoder answer(message);
    answer.out << static_cast<int>(errOK);
    PutLong(answer.out, sum.size) << sum.checksum;
    return errOK;
}

void FileService::SendFile(const char* name, Connection& connection) {
    Source source;
    const errstatus status = source.Open(name, false);
    SendStatus(status, connection);
    if (status == errOK && connection.IsUsable())
        SendBlocks(connection, source, nullptr);
}

/// The client sends no bytes before it is told that the file can be written.
errstatus FileService::TakeFile(const char* name, Connection& connection) {
    Replacement target;
    errstatus status = target.Open(name);
    if (status != errOK)
        return status;
    SendStatus(errOK, connection);
    status = connection.IsUsable() ? ReceiveBlocks(connection, target, nullptr) : errReset;
    return status == errOK ? target.Commit() : status;
}

void FileService::SendStatus(errstatus status, Connection& connection) {
    Encoder(message).out << static_cast<int>(status);
    if (connection.IsUsable())
        connection.Send(message);
}

} // namespace fileserv
