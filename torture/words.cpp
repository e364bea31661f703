// SPDX-License-Identifier: MIT
//
// What builds for machines of different words and byte orders tell each other.
//
//   words write FOLDER   puts a record, packed bits and the checksums of both there
//   words read FOLDER    reads what some build has put there, and compares each value
//   words serve COUNT    prints a port; takes a record of each of so many clients as a message,
//                        compares each value, and sends them back as it encodes them itself
//   words ask PORT       sends a record to a server, and compares the answer
//
// The last line tells how many values were right. The status is 1 if one was not.
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include <bdtstream.h>
#include <dsbitset.h>
#include <dsdatcol.h>
#include <dsstring.h>
#include <pfufs.h>
#include <psock.h>
#include <psockmsg.h>

namespace {

int right = 0, wrong = 0;

void Expect(bool holds, const char* what) {
    ++(holds ? right : wrong);
    if (!holds)
        std::fprintf(stderr, "words: wrong: %s\n", what);
}

/// Puts the values one behind the other.
struct Writer {
    bdtOStream& out;

    template <typename Value>
    void operator()(Value value) {
        out << value;
    }
    void Text(const std::string& text, const std::wstring& same) {
        out << text.c_str() << same.c_str() << static_cast<const char*>(nullptr);
    }
    void Character(unsigned short character) {
        out.multibyte(1);
        out << character;
        out.multibyte(0);
    }
    void Block(std::string bytes) { out.Write(bytes.data(), static_cast<int>(bytes.size())); }
};

/// Takes them back, and compares each with what it should be.
struct Reader {
    bdtIStream& in;

    template <typename Value>
    void operator()(Value value) {
        Value got{};
        in >> got;
        Expect(in.good() && std::memcmp(&got, &value, sizeof value) == 0, "a number");
    }
    void Text(const std::string& text, const std::wstring&) {
        for (const std::string& expected : {text, text, std::string()}) {
            dsString got("before");
            in >> got;
            Expect(in.good() && expected == static_cast<const char*>(got), "a text");
        }
    }
    void Character(unsigned short character) {
        in.multibyte(1);
        (*this)(character);
        in.multibyte(0);
    }
    void Block(const std::string& bytes) {
        char* got = nullptr;
        int length = -1;
        in.Read(got, length);
        const std::unique_ptr<char[]> owned(got);
        Expect(in.good() && length == static_cast<int>(bytes.size()) &&
                   std::memcmp(got, bytes.data(), bytes.size()) == 0,
               "a block");
    }
};

/// The values of a record: the same on every machine. A standard engine gives the same numbers
/// everywhere, which standard distributions do not.
template <typename Visitor>
void VisitRecord(Visitor visit) {
    std::mt19937 random(20);
    const auto bits = [&random] { return static_cast<std::uint32_t>(random()); };
    for (int i = 0; i < 2000; ++i) {
        visit(static_cast<char>(bits()));
        visit(static_cast<unsigned char>(bits()));
        visit(static_cast<short>(bits()));
        visit(static_cast<unsigned short>(bits()));
        visit(static_cast<int>(bits()));
        visit(static_cast<unsigned int>(bits()));
        visit(static_cast<long>(static_cast<std::int32_t>(bits())));
        visit(static_cast<unsigned long>(bits()));
        // Of 24 and 53 bits, so that every one is exact.
        const int mantissa = static_cast<int>(bits() >> 8),
                  exponent = static_cast<int>(bits() % 254);
        visit(std::ldexp(static_cast<float>(mantissa), exponent - 149));
        visit(-std::ldexp(static_cast<double>(mantissa) * 536870912 + (bits() >> 3),
                          exponent * 7 - 900));
    }
    for (const double odd : {0.0, -0.0, std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::denorm_min()}) {
        visit(odd);
        visit(static_cast<float>(odd));
    }
    visit(std::numeric_limits<float>::denorm_min());
    visit.Text("", L"");
    visit.Text("plain", L"plain");
    visit.Text("Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x98\x80",
               L"Gr\u00FC\u00DFe \u20AC \U0001F600");
    for (const int character : {0x41, 0xE9, 0x20AC, 0xFFFD, 0})
        visit.Character(static_cast<unsigned short>(character));
    for (const int size : {0, 1, 255, 70000}) {
        std::string block;
        for (int i = 0; i < size; ++i)
            block += static_cast<char>(bits());
        visit.Block(block);
    }
}

std::string EncodedRecord() {
    std::stringbuf buffer;
    bdtOStream out(&buffer, 1);
    VisitRecord(Writer{out});
    Expect(out.good(), "the state after writing");
    return buffer.str();
}

void CompareRecord(const std::string& record) {
    std::stringbuf buffer(record);
    bdtIStream in(&buffer, 1);
    VisitRecord(Reader{in});
    Expect(buffer.in_avail() == 0 || buffer.sgetc() == EOF, "the end of the record");
}

constexpr unsigned long bitCount = 100'003;

/// Sparse in front and dense behind, so that there are long runs and none.
dsBitSet Bits() {
    std::mt19937 random(21);
    dsBitSet bits(bitCount);
    for (unsigned long i = 8; i < bitCount; ++i)
        if (random() % (i < bitCount / 2 ? 3000 : 2) == 0)
            bits.SetOn(i);
    bits.SetOn(0); // a first byte that is no digit
    return bits;
}

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

unsigned int SumOf(const std::string& path) {
    unsigned int sum = 0;
    Expect(pfuFS::pfuCalcCheckSumByPath(path.c_str(), sum) == errOK, "the result of a checksum");
    return sum;
}

void WriteFiles(const std::string& folder) {
    std::ofstream(folder + "/record", std::ios::binary) << EncodedRecord();
    std::ofstream bits(folder + "/bits", std::ios::binary);
    Expect(Bits().Save(bits) == 1, "the result of packing");
    bits.close();
    std::filebuf sums;
    Expect(sums.open(folder + "/sums", std::ios::out | std::ios::binary) != nullptr, "a file");
    bdtOStream out(&sums, 1);
    out << SumOf(folder + "/record") << SumOf(folder + "/bits");
    Expect(out.good(), "the state after writing");
}

void ReadFiles(const std::string& folder) {
    CompareRecord(Content(folder + "/record"));
    std::ifstream packed(folder + "/bits", std::ios::binary);
    dsBitSet bits(bitCount);
    const dsBitSet expected = Bits();
    Expect(bits.Restore(packed) == 1, "the result of unpacking");
    for (unsigned long i = 0; i < bitCount; ++i)
        if (bits.IsOn(i) != expected.IsOn(i))
            Expect(false, "a bit");
    std::filebuf sums;
    Expect(sums.open(folder + "/sums", std::ios::in | std::ios::binary) != nullptr, "a file");
    bdtIStream in(&sums, 1);
    for (const char* name : {"/record", "/bits"}) {
        unsigned int sum = 0;
        in >> sum;
        Expect(in.good() && sum == SumOf(folder + name), "a checksum");
    }
}

bool Send(psockStream& stream, const std::string& record) {
    dsXArray<char> message(nullptr);
    message.Resize(static_cast<unsigned int>(record.size()));
    std::memcpy(message.GetDataPtr(), record.data(), record.size());
    return Write(stream, message) == errOK;
}

std::string Receive(psockStream& stream) {
    dsXArray<char> message(nullptr);
    Expect(Read(stream, message) == errOK, "the result of receiving");
    return {message.GetDataPtr(), message.GetSize()};
}

class Server : public psockBlockingServer {
public:
    explicit Server(int count) : left(count) {
        Initialize(SystemAssigned);
        std::printf("%d\n", GetPort());
        std::fflush(stdout);
    }
    bool Execute(psockStream* stream) override {
        const std::unique_ptr<psockStream> client(stream);
        CompareRecord(Receive(*client));
        Expect(Send(*client, EncodedRecord()), "the result of sending");
        return --left == 0;
    }

private:
    int left;
};

void Ask(int port) {
    const std::unique_ptr<psockStream> server(psockServer::Connect("127.0.0.1", port));
    Expect(server != nullptr, "the connection");
    if (server == nullptr)
        return;
    const std::string record = EncodedRecord();
    Expect(Send(*server, record), "the result of sending");
    Expect(Receive(*server) == record, "the answer");
}

} // namespace

int main(int argc, char** argv) {
    const std::string what = argc == 3 ? argv[1] : "";
    Expect(std::setlocale(LC_ALL, "C.UTF-8") != nullptr, "the locale");
    if (what == "write")
        WriteFiles(argv[2]);
    else if (what == "read")
        ReadFiles(argv[2]);
    else if (what == "serve")
        Server(std::atoi(argv[2])).Run();
    else if (what == "ask")
        Ask(std::atoi(argv[2]));
    else
        Expect(false, "the command line");
    std::printf("%d right, %d wrong\n", right, wrong);
    return wrong == 0 ? 0 : 1;
}
