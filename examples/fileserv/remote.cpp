// SPDX-License-Identifier: MIT
#include "remote.h"

#include <utility>

namespace fileserv {

namespace {

/// The checksum of a very large file takes its time.
constexpr std::chrono::minutes patience(10);

/// Goes on behind the status of an answer that was received.
class Answer : public Decoder {
public:
    explicit Answer(dsXArray<char>& message) : Decoder(message) {
        int status = errNone;
        in >> status;
    }
};

} // namespace

RemoteFolder::RemoteFolder(std::unique_ptr<psockStream> socket, zelService* service)
    : connection(std::move(socket), patience, service) {}

std::unique_ptr<RemoteFolder> RemoteFolder::Connect(const char* host, int port,
                                                    zelService* service) {
    std::unique_ptr<psockStream> socket(psockServer::Connect(host, port));
    if (socket == nullptr)
        return nullptr;
    return std::unique_ptr<RemoteFolder>(new RemoteFolder(std::move(socket), service));
}

errstatus RemoteFolder::GetListing(const std::string& path, const std::string& pattern,
                                   std::vector<Entry>& entries) {
    const errstatus status = Ask(List, path, pattern);
    if (status != errOK)
        return status;
    Answer answer(message);
    return Understood(TakeEntries(answer.in, entries));
}

errstatus RemoteFolder::GetEntry(const std::string& path, Entry& entry) {
    const errstatus status = Ask(Stat, path, "");
    if (status != errOK)
        return status;
    Answer answer(message);
    return Understood(TakeEntry(answer.in, entry));
}

errstatus RemoteFolder::GetSum(const std::string& path, Sum& sum) {
    const errstatus status = Ask(Checksum, path, "");
    if (status != errOK)
        return status;
    Answer answer(message);
    TakeLong(answer.in, sum.size) >> sum.checksum;
    return Understood(answer.in.good());
}

errstatus RemoteFolder::FetchFile(const std::string& path, const std::string& file,
                                  const Moved& moved) {
    Replacement target;
    errstatus status = target.Open(file.c_str());
    if (status == errOK)
        status = Ask(Fetch, path, "");
    if (status == errOK)
        status = ReceiveBlocks(connection, target, moved);
    return status == errOK ? target.Commit() : status;
}

errstatus RemoteFolder::PutFile(const std::string& file, const std::string& path,
                                const Moved& moved) {
    Source source;
    errstatus status = source.Open(file.c_str(), true);
    if (status == errOK)
        status = Ask(Put, path, "");
    if (status != errOK)
        return status;
    status = SendBlocks(connection, source, moved);
    const errstatus answered = connection.IsUsable() ? ReceiveAnswer() : status;
    return status == errOK ? answered : status;
}

errstatus RemoteFolder::Do(Operation operation, const std::string& path) {
    return Ask(operation, path, "");
}

errstatus RemoteFolder::Ask(Operation operation, const std::string& path,
                            const std::string& argument) {
    EncodeRequest({operation, path, argument}, message);
    const errstatus status = connection.IsUsable() ? connection.Send(message) : errNotConnected;
    return status == errOK ? ReceiveAnswer() : status;
}

/// The status of the next answer.
errstatus RemoteFolder::ReceiveAnswer() {
    const errstatus received = connection.Receive(message, largestAnswer);
    if (received != errOK)
        return received;
    int status = errNone;
    Decoder(message).in >> status;
    return status != errNone ? static_cast<errstatus>(status) : Understood(false);
}

/// Who does not understand an answer cannot trust the next one.
errstatus RemoteFolder::Understood(bool whole) {
    if (!whole)
        connection.GiveUp();
    return whole ? errOK : errInvalid;
}

} // namespace fileserv
