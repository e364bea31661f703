// SPDX-License-Identifier: MIT
//
// A program of somebody else's: a bit of each family, with classes and containers of its own, and
// nothing that needs exceptions or run-time type information. It ends with 0 if all of it works.

#include <asynccall.h>
#include <bdtstream.h>
#include <cmdargxp.h>
#include <dsbitset.h>
#include <dsdatcol.h>
#include <dsortmap.h>
#include <dsstring.h>
#include <dsunique.h>
#include <errstatus.h>
#include <execproc.h>
#include <mbconv.h>
#include <pfudir.h>
#include <pfufs.h>
#include <pfulock.h>
#include <pfupath.h>
#include <pipestream.h>
#include <pmtask.h>
#include <prolock.h>
#include <psock.h>
#include <psockmsg.h>
#include <rwstream.h>
#include <sockstream.h>
#include <zelprof.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

namespace {

int failures = 0;

void expect(bool good, const char* what) {
    if (!good) {
        std::printf("consumer: %s\n", what);
        ++failures;
    }
}

struct Point {
    double x, y;
};

struct Constant {
    const int value;
};

// Containers of its own elements, and a map that orders its keys itself and owns them.
class Backwards : public dsSortedMap<Point, int> {
protected:
    int Compare(int first, int second) const override { return second - first; }
    int CopyKey(int key) const override {
        ++keys;
        return key;
    }
    void FreeKey(int) const override { --keys; }

public:
    mutable int keys = 0;
};

void containers() {
    dsXArray<Point> points(nullptr);
    points += Point{1, 2};
    dsXArray<Constant> constants(nullptr);
    constants += Constant{1};
    constants += Constant{2};
    expect(constants.GetSize() == 2 && constants[1].value == 2, "elements that do not change");
    Backwards map;
    expect(map.Add(1, points[0]) && map.Add(2, {3, 4}) && !map.Add(2, {5, 6}), "map");
    std::unique_ptr<dsBaseIter<Point>> at(map.GetIter());
    expect(at->Current().x > 2 && map.keys == 2 && map.Remove(2) && map.keys == 1, "walk");
    dsBitSet set(10);
    expect(set.SetOn(12) && set.GetSize() == 1 && set.Next(0) == 12, "bits");
    const dsUniqueString one("same"), other("same");
    expect(one == other, "interned strings");
    dsString text("a");
    ToString(255, text, ToStringHex);
    expect(std::string(text) == "ff", "numbers as text");
}

// Streams of its own, which the library asks about their class.
class Counted : public memStream {
public:
    using memStream::Read;
    errstatus Read(char* data, int length, int& count) override {
        ++reads;
        return memStream::Read(data, length, count);
    }
    int reads = 0;
};

class Loop : public psockStream {
public:
    int Read(void* data, int length, bool) override {
        return static_cast<int>(bytes.sgetn(static_cast<char*>(data), length));
    }
    int Write(const void* data, int length, bool) override {
        return static_cast<int>(bytes.sputn(static_cast<const char*>(data), length));
    }
    bool Exception() override { return false; }
    int Select(fd_set*, fd_set*, fd_set*, timeval*) override { return 0; }
    int SelectWait(fd_set*, fd_set*, fd_set*, timeval*) override { return 0; }
    errstatus getErr() override { return errOK; }
    unsigned int getSock() override { return 0; }
    void CloseSocket() override {}

private:
    std::stringbuf bytes;
};

void streamsOfItsOwn() {
    Counted counted;
    char lines[] = "one\ntwo";
    dsXArray<char> line(nullptr);
    expect(counted.Write(lines, 7) == errOK && counted.Seek(0, 0) == errOK &&
               counted.ReadLn(line, '\n') == errOK && line.GetSize() == 4 && counted.reads == 4,
           "line of a stream of its own");
    Loop loop;
    dsXArray<char> message(nullptr);
    expect(Write(loop, line) == errOK && Read(loop, message) == errOK && message.GetSize() == 4,
           "message through a stream of its own");
}

void streams() {
    std::stringbuf bytes;
    bdtIOStream record(&bytes, true);
    record << 7 << "seven";
    int number = 0;
    dsString text;
    record >> number >> text;
    expect(record && number == 7 && std::string(text) == "seven", "binary stream");
    rwStream* memory = nullptr;
    CreateStreamInMemory(&memory);
    expect(memory != nullptr && memory->Seek(1, 0) == errOK, "memory stream");
    DeleteStreamInMemory(memory);
    oPipeStream* out = nullptr;
    iPipeStream* in = nullptr;
    std::string line;
    expect(CreatePipeSt(&out, &in) == errOK, "pipe");
    *out << "through" << std::endl;
    expect(std::getline(*in, line) && line == "through", "pipe streams");
    DeletePipe(out);
    DeletePipe(in);
    std::unique_ptr<char> neutral(mbxNativeToNeut("plain"));
    expect(neutral && std::string(neutral.get()) == "plain", "neutral text");
}

// A server of its own, on a thread of its own.
class Echo : public psockBlockingServer {
public:
    bool Execute(psockStream* stream) override {
        const std::unique_ptr<psockStream> owned(stream);
        dsXArray<char> message(nullptr);
        return Read(*owned, message) != errOK || Write(*owned, message) == errOK;
    }
};

class Serving : public pmStrictTask {
public:
    explicit Serving(Echo& served) : server(&served) {}
    unsigned int ThreadRun() override {
        server->Run();
        return 0;
    }

private:
    Echo* server;
};

int twice(void* number) {
    return 2 * *static_cast<int*>(number);
}

void tasks() {
    Echo server;
    expect(server.Initialize(SystemAssigned), "server");
    Serving task(server);
    expect(task.Start(), "thread");
    ptkStrictTaskEvent end(&task);
    const std::unique_ptr<psockStream> client(psockServer::Connect("127.0.0.1", server.GetPort()));
    expect(client != nullptr, "connection");
    dsXArray<char> message(nullptr);
    message.Append(5, "hello");
    expect(client && Write(*client, message) == errOK, "message out");
    message.Clear();
    expect(client && Read(*client, message) == errOK && message.GetSize() == 5, "message back");
    expect(end.Wait(10000), "end of the thread");

    int number = 21;
    const std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(twice, &number));
    expect(call && call->Wait(10000) && call->GetReturnValue() == 42, "asynchronous call");
    ExecProcess child("true", 0);
    expect(child.Start() && child.WaitForProcess() == 0, "child process");
    proMutex mutex;
    expect(mutex.Lock() && mutex.TryLock() && mutex.Unlock() && mutex.Unlock(), "mutex");
}

void files() {
    pfuDirPath here;
    here.GetCurrentDir();
    expect(pfuFS::pfuIsDir(here), "current directory");
    const std::unique_ptr<pfuDir> folder(pfuDir::OpenDir(here));
    pfuDirEntry entry;
    expect(folder && folder->Read(entry), "directory");
    const std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct("no such folder|lock"));
    expect(lock && lock->Lock() == errNotFound, "lock");
    expect(std::string(errName(errNotFound)) == "errNotFound", "name of a result");
}

} // namespace

int main() {
    containers();
    streams();
    streamsOfItsOwn();
    tasks();
    files();
    return failures == 0 ? 0 : 1;
}
