// SPDX-License-Identifier: MIT
#include "dumper.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <utility>

#include <bdtstream.h>

#include "outside/varnholt/text.h"

namespace tools {

namespace {

constexpr int portable = 1;
constexpr std::size_t rowBytes = 8;
constexpr std::size_t pieceSize = 4096;
constexpr std::size_t longestShown = 60; // bytes of a text
constexpr std::size_t prefixSize = 4;
constexpr char hexDigits[] = "0123456789ABCDEF";

std::string Hex(std::uint64_t number, std::size_t digits) {
    char text[17];
    std::snprintf(text, sizeof text, "%0*llX", static_cast<int>(digits),
                  static_cast<unsigned long long>(number));
    return text;
}

template <typename Float>
std::string Shortest(Float value) {
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

bool IsAscii(char c) {
    return c >= ' ' && c <= '~';
}

/// Whether a character may stand in a line of output: no control character, none that changes the
/// direction of what follows, none that cannot be seen.
bool IsHarmless(std::uint32_t character) {
    constexpr std::pair<std::uint32_t, std::uint32_t> hidden[] = {
        {0, 0x1F},        {0x7F, 0x9F},     {0xAD, 0xAD},        {0x61C, 0x61C},   {0x180E, 0x180E},
        {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},    {0xE000, 0xF8FF}, {0xFEFF, 0xFEFF},
        {0xFFF0, 0xFFFB}, {0xFFFE, 0xFFFF}, {0xE0000, 0x10FFFF},
    };
    return std::none_of(std::begin(hidden), std::end(hidden), [&](const auto& range) {
        return character >= range.first && character <= range.second;
    });
}

/// The character at the start of a text that is not empty, and its bytes; false if none is there.
bool FirstCharacter(std::string_view text, std::uint32_t& character, std::size_t& size) {
    const std::string few(text.substr(0, 4));
    wchar_t wide[6] = {};
    mbxNeutToWide(few.c_str(), wide);
    character = static_cast<std::uint32_t>(wide[0]);
    size = character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
    // Every byte that is none reads as the replacement character.
    const bool none = character == 0xFFFD && few.compare(0, 3, "\xEF\xBF\xBD") != 0;
    if (none)
        size = 1;
    return !none;
}

std::size_t NumberSize(Kind kind) {
    return kind <= Kind::UChar ? 1 : kind == Kind::Double ? 8 : 4;
}

std::size_t LongestName(const Layout& layout, std::size_t indices) {
    std::size_t longest = 0;
    for (const Field& field : layout)
        longest =
            std::max(longest, field.kind == Kind::Group ? LongestName(field.members, indices + 3)
                                                        : field.name.size() + indices);
    return longest;
}

std::string Torn(std::uint64_t got, std::uint64_t wanted) {
    return "torn: " + std::to_string(got) + " of " + std::to_string(wanted) + " bytes";
}

} // namespace

std::streamsize Source::xsgetn(char* data, std::streamsize count) {
    const auto most = static_cast<std::streamsize>(
        std::min<std::uint64_t>(left, static_cast<std::uint64_t>(count)));
    const std::streamsize got = input.sgetn(data, most);
    read.append(data, static_cast<std::size_t>(got));
    offset += static_cast<std::uint64_t>(got);
    left -= static_cast<std::uint64_t>(got);
    return got;
}

Dumper::Dumper(std::streambuf& input, std::ostream& output, const Layout& fields, const Look& how)
    : source(input), out(output), layout(fields), look(how),
      nameWidth(std::clamp<std::size_t>(LongestName(fields, 0), 11, 24)) {}

void Dumper::DumpRecords() {
    for (std::uint64_t number = 1; Another(); ++number) {
        out << (number > 1 ? "\n" : "") << "record " << number << '\n';
        if (!DumpFields(layout, "") && !source.AtEnd())
            DumpRest("(rest)", "");
    }
}

void Dumper::DumpMessages() {
    for (std::uint64_t number = 1; Another(); ++number) {
        if (number > 1)
            out << '\n';
        const std::string name = "message " + std::to_string(number);
        const std::uint64_t start = source.Offset();
        int length = 0;
        bdtIStream(&source, portable) >> length;
        const std::string prefix = source.Read();
        source.Forget();
        std::string fault;
        if (prefix.size() < prefixSize)
            fault = Torn(prefix.size(), prefixSize);
        else if (length < 0)
            fault = "a negative length: no payload";
        Rows(start, prefix, name, std::to_string(length) + " bytes", fault, false);
        if (!fault.empty())
            continue;

        source.Limit(static_cast<std::uint64_t>(length));
        const bool whole = DumpFields(layout, "");
        if (source.Left() != 0 && !source.AtEnd())
            DumpRest("(rest)", whole ? "behind the last field" : "");
        const std::uint64_t missing = source.Left();
        if (missing != 0)
            Rows(source.Offset(), "", name, "",
                 Torn(static_cast<std::uint64_t>(length) - missing,
                      static_cast<std::uint64_t>(length)),
                 false);
        source.Limit(UINT64_MAX);
    }
}

bool Dumper::Another() {
    if (!source.AtHand())
        out << std::flush;
    return out && !source.AtEnd();
}

bool Dumper::DumpFields(const Layout& fields, const std::string& index) {
    const std::size_t outside = counts.size();
    bool known = true;
    for (auto field = fields.begin(); known && field != fields.end(); ++field) {
        if (field->kind == Kind::Rest)
            DumpRest(field->name + index, "");
        else
            known =
                field->kind == Kind::Group ? DumpGroup(*field, index) : DumpField(*field, index);
    }
    counts.resize(outside);
    return known;
}

bool Dumper::DumpGroup(const Field& group, const std::string& index) {
    const bool counted = !group.name.empty();
    const auto said = std::find_if(counts.rbegin(), counts.rend(),
                                   [&](const auto& number) { return number.first == group.name; });
    const std::int64_t times = counted ? said->second : 0;
    if (times < 0)
        Rows(source.Offset(), "", group.name + index, std::to_string(times) + " times",
             "a negative number", false);
    for (std::int64_t i = 0; counted ? i < times : !source.AtEnd(); ++i) {
        // A group that takes no bytes could be shown for ever, if that is what a number says.
        const std::uint64_t before = source.Offset();
        if (counted && source.AtEnd()) {
            Rows(before, "", group.name + index, "",
                 "torn: " + std::to_string(i) + " of " + std::to_string(times) + " times", false);
            return false;
        }
        if (!DumpFields(group.members, index + "[" + std::to_string(i) + "]"))
            return false;
        if (source.Offset() == before)
            break;
    }
    return true;
}

bool Dumper::DumpField(const Field& field, const std::string& index) {
    const std::uint64_t start = source.Offset();
    const bool isNumber = field.kind <= Kind::Double;
    const Value value = isNumber ? ReadNumber(field.kind) : ReadPrefixed(field.kind);
    if (isNumber && !value.lost)
        counts.emplace_back(field.name, value.number);
    const std::string_view all(source.Read());
    const bool raw = field.kind == Kind::Block && all.size() > prefixSize;
    const std::string_view head = raw ? all.substr(0, prefixSize) : all;
    Rows(start, head, field.name + index, value.shown, value.fault, false);
    if (raw)
        Rows(start + prefixSize, all.substr(prefixSize), "", "", "", true);
    source.Forget();
    return !value.lost;
}

void Dumper::DumpRest(const std::string& name, const std::string& fault) {
    std::string piece(pieceSize, '\0');
    const std::uint64_t most = look.rows != 0 ? look.rows * rowBytes : UINT64_MAX;
    std::uint64_t shown = 0, skipped = 0;
    for (;;) {
        const std::uint64_t start = source.Offset();
        const auto got = static_cast<std::size_t>(source.sgetn(piece.data(), std::ssize(piece)));
        source.Forget();
        const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(got, most - shown));
        if (part != 0 || shown == 0)
            Rows(start, std::string_view(piece).substr(0, part), shown == 0 ? name : "", "",
                 shown == 0 ? fault : "", true);
        shown += part;
        skipped += got - part;
        if (got < piece.size())
            break;
    }
    if (skipped != 0)
        out << "          ... " << skipped << " more bytes\n";
}

Dumper::Value Dumper::ReadNumber(Kind kind) {
    bdtIStream in(&source, portable);
    Value value;
    const auto integer = [&](auto number) {
        in >> number;
        value.number = static_cast<std::int64_t>(number);
        value.shown = std::to_string(number);
    };
    const auto real = [&](auto number) {
        in >> number;
        value.shown = Shortest(number);
    };
    switch (kind) {
    case Kind::Char:
        integer(char{});
        if (IsAscii(static_cast<char>(value.number)))
            value.shown += std::string(" '") + static_cast<char>(value.number) + '\'';
        break;
    case Kind::UChar:
        integer(static_cast<unsigned char>(0));
        break;
    case Kind::Short:
    case Kind::Int:
    case Kind::Long:
        integer(0);
        break;
    case Kind::Float:
        real(0.0F);
        break;
    case Kind::Double:
        real(0.0);
        break;
    default:
        integer(0U);
        break;
    }
    if ((kind == Kind::Short && value.number != static_cast<short>(value.number)) ||
        (kind == Kind::UShort && value.number > 0xFFFF))
        value.fault = "does not fit 16 bits";
    if (in.eof())
        value = {"", Torn(source.Read().size(), NumberSize(kind)), 0, true};
    return value;
}

Dumper::Value Dumper::ReadPrefixed(Kind kind) {
    bdtIStream in(&source, portable);
    char* data = nullptr;
    int length = 0;
    in.Read(data, length);
    delete[] data; // the source has kept the bytes, also where they are not all there
    std::string_view bytes(source.Read());
    if (bytes.size() < prefixSize)
        return {"", Torn(bytes.size(), prefixSize), 0, true};
    bytes.remove_prefix(prefixSize);
    Value value;
    const bool isText = kind == Kind::Text || kind == Kind::Wide;
    if (length < 0) {
        value.lost = !isText;
        if (isText)
            value.shown = "null";
        if (length != -1 || !isText)
            value.fault = "a prefix of " + std::to_string(length);
        return value;
    }
    if (kind == Kind::Block)
        value.shown = std::to_string(length) + " bytes";
    else if (isText)
        value = ShowText(bytes);
    else
        value = ShowCharacter(bytes);
    if (in.eof()) {
        value.fault = Torn(bytes.size(), static_cast<std::uint64_t>(length));
        value.lost = true;
    }
    return value;
}

Dumper::Value Dumper::ShowCharacter(std::string_view bytes) const {
    std::uint32_t character = 0;
    std::size_t size = 0;
    Value value;
    if (bytes == std::string_view("\0", 1)) {
        value.shown = "U+0000";
    } else if (bytes.empty() || bytes[0] == '\0' || !FirstCharacter(bytes, character, size) ||
               size != bytes.size()) {
        value.fault = "no character";
    } else {
        value.shown = "U+" + Hex(character, 4);
        if (IsHarmless(character) && (character < 0x80 || look.unicode))
            value.shown += " '" + std::string(bytes) + '\'';
        if (character > 0xFFFF)
            value.fault = "does not fit 16 bits";
    }
    return value;
}

Dumper::Value Dumper::ShowText(std::string_view bytes) const {
    Value value{"\"", "", 0, false};
    // One NUL at the end is the other form of text.
    if (!bytes.empty() && bytes.back() == '\0')
        bytes.remove_suffix(1);
    std::size_t at = 0;
    bool cut = false;
    while (at < bytes.size() && value.fault.empty()) {
        std::uint32_t character = static_cast<unsigned char>(bytes[at]);
        std::size_t size = 1;
        if (character == 0)
            value.fault = "a NUL inside, where the text ends";
        else if (character >= 0x80 && !FirstCharacter(bytes.substr(at), character, size))
            value.fault = "no UTF-8";
        cut = at >= longestShown;
        if (!cut)
            value.shown += Escaped(bytes.substr(at, size), character, value.fault.empty());
        at += size;
    }
    // What stands behind a bad byte is shown byte by byte.
    for (; at < std::min(bytes.size(), longestShown); ++at)
        value.shown += Escaped(bytes.substr(at, 1), 0, false);
    value.shown += cut || at < bytes.size() ? "\"..." : "\"";
    return value;
}

std::string Dumper::Escaped(std::string_view bytes, std::uint32_t character, bool valid) const {
    if (valid && character >= 0x80 && IsHarmless(character) && look.unicode)
        return std::string(bytes);
    if (valid && character >= 0x80)
        return "\\u{" + Hex(character, 1) + '}';
    if (IsAscii(bytes[0]))
        return (bytes[0] == '"' || bytes[0] == '\\' ? "\\" : "") + std::string(bytes);
    return "\\x" + Hex(static_cast<unsigned char>(bytes[0]), 2);
}

void Dumper::Rows(std::uint64_t offset, std::string_view bytes, const std::string& name,
                  const std::string& value, const std::string& fault, bool raw) {
    if (!fault.empty())
        ++bad;
    std::size_t count = (bytes.size() + rowBytes - 1) / rowBytes;
    if (look.rows != 0)
        count = std::min(count, look.rows);
    for (std::size_t row = 0; row < std::max<std::size_t>(count, 1); ++row) {
        const std::string_view part =
            bytes.substr(std::min(bytes.size(), row * rowBytes), rowBytes);
        std::string shown = row == 0 ? value : "";
        if (raw && !part.empty()) {
            shown += '|';
            for (const char c : part)
                shown += IsAscii(c) ? c : '.';
            shown += '|';
        }
        Row(offset + row * rowBytes, part, row == 0 ? name : "", shown, row == 0 ? fault : "");
    }
    if (count * rowBytes < bytes.size())
        out << "          ... " << bytes.size() - count * rowBytes << " more bytes\n";
}

void Dumper::Row(std::uint64_t offset, std::string_view bytes, const std::string& name,
                 const std::string& value, const std::string& fault) {
    std::string hex;
    for (const char c : bytes) { // most of the time goes here
        const auto byte = static_cast<unsigned char>(c);
        hex += {hexDigits[byte >> 4], hexDigits[byte & 15], ' '};
    }
    hex.resize(rowBytes * 3 + 1, ' ');
    const auto in = [this](const char* colour, const std::string& text) {
        return look.colours ? colour + text + "\033[0m" : text;
    };
    std::string line = in("\033[2m", Hex(offset, 8)) + "  " + hex + name;
    if (!value.empty() || !fault.empty()) {
        line.append(name.size() < nameWidth ? nameWidth - name.size() : 0, ' ');
        line += "  " + value;
        if (!fault.empty())
            line += (value.empty() ? "" : "  ") + in("\033[1;31m", "!! " + fault);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

} // namespace tools
