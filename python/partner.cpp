// SPDX-License-Identifier: MIT
//
// For the test of plinth_wire.py: what the library makes of bytes that come from there. A request
// on the standard input is a record, `text what, int size, block data`:
//
//   what               data
//   kinds of values    a record of these
//   bits               a packed set of `size` bits
//   sum                the path of a file
//
// The answer is `int good, block data`: whether all could be read, and the same written anew;
// before a packed set its text and a line feed; for a file its checksum, a uint.
#include <clocale>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include <bdtstream.h>
#include <dsbitset.h>
#include <dsstring.h>
#include <pfufs.h>

namespace {

constexpr int portable = 1;

/// Takes one value in and writes it anew, if it is one.
struct Copy {
    bdtIStream& in;
    bdtOStream& out;

    template <typename Value>
    void Number() {
        Value value{};
        in >> value;
        if (in)
            out << value;
    }
    void Character() {
        in.multibyte(1);
        out.multibyte(1);
        Number<unsigned short>();
        in.multibyte(0);
        out.multibyte(0);
    }
    void Text() {
        dsString text;
        in >> text;
        if (in)
            out << static_cast<const char*>(text);
    }
    void Wide() {
        dsString text;
        in >> text;
        std::wstring wide(text.GetLength() + 1, L'\0');
        std::mbstowcs(wide.data(), text, wide.size());
        if (in)
            out << wide.c_str();
    }
    void Block() {
        char* bytes = nullptr;
        int length = 0;
        in.Read(bytes, length);
        const std::unique_ptr<char[]> owned(bytes);
        if (in)
            out.Write(bytes, length);
    }

    void operator()(const std::string& kind) {
        static const std::map<std::string, void (Copy::*)()> kinds{
            {"char", &Copy::Number<char>},   {"uchar", &Copy::Number<unsigned char>},
            {"short", &Copy::Number<short>}, {"ushort", &Copy::Number<unsigned short>},
            {"int", &Copy::Number<int>},     {"uint", &Copy::Number<unsigned int>},
            {"long", &Copy::Number<long>},   {"ulong", &Copy::Number<unsigned long>},
            {"float", &Copy::Number<float>}, {"double", &Copy::Number<double>},
            {"character", &Copy::Character}, {"text", &Copy::Text},
            {"wide", &Copy::Wide},           {"block", &Copy::Block},
        };
        (this->*kinds.at(kind))();
    }
};

bool CopyRecord(const std::string& kinds, const std::string& data, std::stringbuf& answer) {
    std::stringbuf bytes(data, std::ios::in);
    bdtIStream in(&bytes, portable);
    bdtOStream out(&answer, portable);
    std::istringstream names(kinds);
    for (std::string kind; in && names >> kind;)
        Copy{in, out}(kind);
    return in && out && bytes.sgetc() == EOF;
}

bool CopyBits(int size, const std::string& data, std::stringbuf& answer) {
    dsBitSet bits(static_cast<unsigned long>(size));
    std::istringstream in(data);
    std::ostream out(&answer);
    const bool good = bits.Restore(in) == 1;
    out << bits << '\n';
    return good && bits.Save(out) == 1;
}

bool Sum(const std::string& path, std::stringbuf& answer) {
    unsigned int sum = 0;
    const bool good = pfuFS::pfuCalcCheckSumByPath(path.c_str(), sum) == errOK;
    bdtOStream(&answer, portable) << sum;
    return good;
}

} // namespace

int main() {
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr)
        return EXIT_FAILURE;
    bdtIStream in(std::cin.rdbuf(), portable);
    bdtOStream out(std::cout.rdbuf(), portable);
    for (;;) {
        dsString kinds;
        int size = 0, length = 0;
        char* bytes = nullptr;
        (in >> kinds >> size).Read(bytes, length);
        const std::unique_ptr<char[]> owned(bytes);
        if (!in)
            return in.eof() ? EXIT_SUCCESS : EXIT_FAILURE;
        const std::string what(kinds), data(bytes, static_cast<std::size_t>(length));
        std::stringbuf answer;
        const bool good = what == "bits"  ? CopyBits(size, data, answer)
                          : what == "sum" ? Sum(data, answer)
                                          : CopyRecord(what, data, answer);
        std::string told = answer.str();
        out << static_cast<int>(good);
        out.Write(told.data(), static_cast<int>(told.size()));
        std::cout.flush();
    }
}
