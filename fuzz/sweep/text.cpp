// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include <bdtstream.h>
#include <cmdargxp.h>
#include <dsstring.h>
#include <mbconv.h>
#include <pmtask.h>
#include <zelprof.h>

#include "outside/quillmarsh/abort.h"
#include "outside/quillmarsh/console.h"
#include "outside/quillmarsh/multibyte.h"
#include "outside/varnholt/errors.h"
#include "outside/varnholt/text.h"
#include "outside/win32/files.h"
#include "outside/win32/handles.h"
#include "outside/win32/threads.h"
#include "sweep.h"

namespace {

using namespace sweep;

void Neutral() {
    using Convert = char* (*)();
    const Convert conversions[] = {
        [] { return mbxNativeToNeut("plain text"); }, [] { return mbxNativeToNeut("one\0two", 7); },
        [] { return mbxNeutToNative("plain text"); }, [] { return mbcNativeToNeut("x"); },
        [] { return mbcNeutToNative("x"); },          [] { return Strnew__("plain text"); },
    };
    for (const Convert convert : conversions) {
        char* made = nullptr;
        Try([&] { made = convert(); });
        Expect(made != nullptr || !MustWork(), "it is converted");
        Expect(made == nullptr || std::strchr("pox", made[0]) != nullptr, "and right");
        delete[] made;
    }
    wchar_t* wide = nullptr;
    Try([&] { wide = XStrnew("text"); });
    Expect(wide != nullptr ? wide[0] == L't' : !MustWork(), "a wide copy");
    delete[] wide;
}

void Quoting() {
    std::ostringstream out, back;
    const std::string text = "say\t\\this\n" + std::string(1000, 'x');
    const bool done = Try([&] {
        out.exceptions(std::ios::badbit);
        NativeStringToCStyle(text.c_str(), out);
    });
    if (!done)
        return;
    const bool read = Try([&] {
        back.exceptions(std::ios::badbit);
        CStyleStringToNative(out.str().c_str(), false, back);
    });
    Expect(read ? back.str() == text + '\0' : !MustWork(), "it comes back");
}

void IgnoreReport(const char*, const char*, int) {}

void Arguments() {
    const Folder folder;
    folder.Put("file", "one\ntwo three\n");
    const zelAbortHandler former = zelSetAbortHandler(IgnoreReport);
    char name[] = "program", option[] = "-argfile", file[] = "file", last[] = "last";
    char* words[] = {name, option, file, last, nullptr};
    int argc = 4;
    char** argv = words;
    Try([&] { ExpandCommandArguments(argc, argv, false); });
    if (argv != words) {
        Expect(argc == 4 && std::strcmp(argv[1], "one") == 0 && std::strcmp(argv[3], "last") == 0,
               "the whole list");
        Try([&] { FreeCommandArguments(argc, argv); });
    } else {
        Expect(argc == 4 && !MustWork(), "the list is as it was");
    }
    argv = words + 1;
    file[0] = '?'; // not there
    argc = 2;
    Try([&] { ExpandCommandArguments(argc, argv, false); });
    Expect(argc == 2 && argv == words + 1, "the list is as it was");
    zelSetAbortHandler(former);
}

void BinaryStreams() {
    for (const int portable : {0, 1}) {
        std::stringbuf buffer;
        std::string block(100000, 'b');
        bool written = false;
        Try([&] {
            bdtOStream out(&buffer, portable);
            out << 'c' << 1 << 2.5 << "a text" << L"wide";
            out.Write(block.data(), static_cast<int>(block.size()));
            out << short{1} << 2L << 3u << 4ul << 5.5f;
            out << static_cast<unsigned char>(6) << static_cast<unsigned short>(7) << flush;
            written = out.good();
        });
        Expect(written || !MustWork(), "it is written");
        char c = 0, *data = nullptr;
        int number = 0, length = 0;
        double real = 0;
        dsString text("as before"), wide;
        bool read = false;
        const bool done = Try([&] {
            bdtIStream in(&buffer, portable);
            in >> c >> number >> real >> text >> wide;
            in.Read(data, length);
            short a = 0;
            long b = 0;
            unsigned int d = 0;
            unsigned long e = 0;
            float f = 0;
            unsigned char g = 0;
            unsigned short h = 0;
            in >> a >> b >> d >> e >> f >> g >> h;
            read = in.good() && a + b + static_cast<long>(d + e) + g + h == 1 + 2 + 3 + 4 + 6 + 7;
        });
        Expect(!written || !done ||
                   (read && std::string(text) == "a text" && real == 2.5 && length == 100000 &&
                    data[99999] == 'b'),
               "it comes back");
        Expect(done || std::string(text) == "as before" || std::string(text) == "a text" ||
                   text.IsEmpty(),
               "whole, as before, or empty");
        delete[] data;
        Try([&] {
            bdtIOStream both(&buffer, true), none;
            char word[8] = "1234567";
            Expect(both.sputn(word, 8) == 8 || Hit(), "bytes go");
            Expect(both.sgetn(word, 8) == 8 || Hit(), "and come");
            none.rdbuf(&buffer);
            bdtBase::Swap4(word), bdtBase::Swap8(word), both.Swap4(word), both.Swap8(word);
            for (const unsigned int bytes :
                 {bdtBase::Length('c', 1), bdtBase::Length(short{1}, 1), bdtBase::Length(1, 1),
                  bdtBase::Length(1u, 1), bdtBase::Length(1.0, 1), bdtBase::Length(1.0f, 1),
                  bdtBase::Length(static_cast<unsigned char>(1), 1),
                  bdtBase::Length(static_cast<unsigned short>(1), 1)})
                Expect(bytes >= 1 && bytes <= 8, "the length of a number");
            Expect(bdtBase::Length("text", 1) > 4 && bdtBase::Length(L"text", 1) > 4 &&
                       bdtBase::Length(L'c', 1, 1) > 0,
                   "and of texts");
        });
    }
}

void Profile() {
    Try([&] {
        ProfileEntry entry("sweep");
        const ProfilePoint point(&entry);
        zelTimeval now(0, 0);
        now.GetTimeOfDay();
        now.Normalize();
    });
}

void Match() {
    bool matches = false;
    Try([&] { matches = Strmatch(L"a long name", L"a*n?me"); });
    Expect(matches, "it matches");
    const char* value = nullptr;
    Try([&] { matches = Getenv("PATH", &value); });
    Expect(matches && value != nullptr, "it is set");
}

/// What works on the caller's memory: nothing can fail in there.
void Plain() {
    Try([] {
        char text[32] = "";
        Strcat(Strcpy(text, "one"), "two");
        Expect(Strlen(text) == 6 && Strbytes(text) == 7, "as long as it is");
        Expect(Strchr(text, 't') == text + 3 && Strstr(text, "two") == text + 3, "it is found");
        wchar_t wide[32];
        Expect(Strtoxstr(wide, text, 31) == 6 && mbxWideToNeut(text, wide) == 6, "and converted");
        Expect(mbxNeutToWide(text, wide) == 6, "and back");
        Expect(zel_mblen(text, 1) == 1 && zel_mbstowcs(wide, text, 31) == 6 &&
                   zel_mbtowc(wide, text, 1) == 1 && zel_wctomb(text, L'o') == 1,
               "by the locale as well");
        Expect(zel_getenv("PATH") != nullptr, "it is known");
        errno = EIO;
        Expect(errMapError() == errIO && GetLastError() == EIO, "the last error");
        Expect(GetCurrentProcessId() != 0 && GetCurrentThreadId() != 0 &&
                   GetCurrentThread() == GetTaskSelfHandle(),
               "the caller");
    });
    Expect(!Hit(), "nothing is asked of the system");
    Try([] { zel_printf("%s", "text"); });
}

/// What programs store and send: neither a number nor a name may ever change.
void Results() {
    struct Result {
        int value;
        const char* name;
        int errors[4]; ///< of the system that mean it
    };
    static constexpr Result results[] = {
        {0, "errNone", {}},
        {1, "errOK", {}},
        {2, "errInterrupted", {EINTR}},
        {3, "errOutOfRange", {}},
        {4, "errInvalid", {EINVAL}},
        {5, "errNotFound", {ENOENT}},
        {6, "errFailed", {}},
        {7, "errNoAccess", {EACCES, EPERM}},
        {8, "errExists", {EEXIST}},
        {9, "errBusy", {EBUSY, ETXTBSY}},
        {10, "errShared", {EWOULDBLOCK}},
        {11, "errNoMemory", {ENOMEM, ENOBUFS}},
        {12, "errNoSpace", {ENOSPC, EDQUOT}},
        {13, "errReadOnly", {EROFS}},
        {14, "errNotDirectory", {ENOTDIR}},
        {15, "errIsDirectory", {EISDIR}},
        {16, "errNotSupported", {ENOSYS, ENOTSUP}},
        {17, "errNotEmpty", {ENOTEMPTY}},
        {18, "errNameTooLong", {ENAMETOOLONG}},
        {19, "errTooManyLinks", {ELOOP, EMLINK}},
        {20, "errCrossDevice", {EXDEV}},
        {21, "errTooManyOpen", {EMFILE, ENFILE}},
        {22, "errBrokenPipe", {EPIPE}},
        {23, "errIO", {EIO}},
        {24, "errTooLarge", {EFBIG, E2BIG, EOVERFLOW}},
        {25, "errNoProcess", {ESRCH, ECHILD}},
        {26, "errRefused", {ECONNREFUSED}},
        {27, "errReset", {ECONNRESET, ECONNABORTED}},
        {28, "errTimedOut", {ETIMEDOUT}},
        {29, "errUnreachable", {EHOSTUNREACH, EHOSTDOWN, ENETUNREACH, ENETDOWN}},
        {30, "errFileInPath", {}},
        {31, "errAddressInUse", {EADDRINUSE}},
        {32, "errNoAddress", {EADDRNOTAVAIL, EAFNOSUPPORT}},
        {33, "errNotConnected", {ENOTCONN}},
        {34, "errNoDiskInfo", {}},
        {35, "errBadHandle", {EBADF, ENOTSOCK}},
        {36, "errIllegalText", {EILSEQ}},
        {37, "errPipeFailed", {}},
        {38, "errThreadStart", {}},
        {39, "errSystem", {ENOTTY}},
        {40, "unknown status", {}},
        {41, "errSocketRead", {}},
    };
    Try([] {
        for (const Result& result : results) {
            const auto status = static_cast<errstatus>(result.value);
            Expect(std::strcmp(errName(status), result.name) == 0, result.name);
            for (const int error : result.errors) {
                if (error == 0)
                    break;
                errno = error;
                Expect(errMapError() == status, result.name);
            }
        }
        errno = 0;
        Expect(errMapError() == errOK, "no error is errOK");
    });
    Expect(!Hit(), "nothing is asked of the system");
}

const Scenario scenarios[] = {
    {"results", "errName errMapError", Results},
    {"plain functions",
     "Strcat Strcpy Strlen Strbytes Strchr Strstr Strtoxstr mbxWideToNeut mbxNeutToWide "
     "zel_mb* zel_wc* zel_getenv GetLastError GetCurrent* GetTaskSelfHandle zel_printf",
     Plain},
    {"neutral text", "mb?N*To* Strnew__ XStrnew", Neutral},
    {"quoting", "NativeStringToCStyle CStyleStringToNative", Quoting},
    {"argument files", "ExpandCommandArguments FreeCommandArguments zelAbort zelSetAbortHandler",
     Arguments},
    {"binary streams", "bdt*Stream::* bdtBase::* flush", BinaryStreams},
    {"profiling", "ProfileEntry::* ProfilePoint::* zelTimeval::*", Profile},
    {"matching", "Strmatch Getenv", Match},
};

} // namespace

namespace sweep {
const Family text{"text", scenarios};
}
