// SPDX-License-Identifier: MIT
//
// Shows bytes and what they mean: each field of a layout with its offset, its bytes and its value.
// Bytes that are torn or make no sense are marked, and the dump goes on where it can: with the next
// message, with the next field, or with the bytes as they are.
#ifndef PLINTH_TOOLS_DUMPER_H
#define PLINTH_TOOLS_DUMPER_H

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "layout.h"

namespace tools {

/// How a dump looks.
struct Look {
    bool colours = false;
    bool unicode = false; ///< characters beyond ASCII are shown as such, not escaped
    std::size_t rows = 0; ///< rows of a field at most; 0 is all of them
};

/// What a field is read from: what is left of a message, or of the input. Keeps what was read.
class Source : public std::streambuf {
public:
    explicit Source(std::streambuf& from) : input(from) {}

    /// From here on nothing is to be had behind `count` more bytes.
    void Limit(std::uint64_t count) { left = count; }
    [[nodiscard]] std::uint64_t Left() const { return left; }
    /// Whether more is at hand, so that nobody has to be waited for.
    [[nodiscard]] bool AtHand() { return input.in_avail() > 0; }
    [[nodiscard]] bool AtEnd() { return left == 0 || input.sgetc() == traits_type::eof(); }
    /// The offset in the input.
    [[nodiscard]] std::uint64_t Offset() const { return offset; }

    /// The bytes that were read since the last Forget.
    [[nodiscard]] const std::string& Read() const { return read; }
    void Forget() { read.clear(); }

protected:
    std::streamsize xsgetn(char* data, std::streamsize count) override;

private:
    std::streambuf& input;
    std::uint64_t left = UINT64_MAX;
    std::uint64_t offset = 0;
    std::string read;
};

class Dumper {
public:
    /// The input, the output and the layout must outlive the object.
    Dumper(std::streambuf& input, std::ostream& output, const Layout& fields, const Look& look);

    /// Shows records one behind the other, each of the layout, to the end of the input.
    void DumpRecords();
    /// Shows framed messages, the payload of each of the layout, to the end of the input.
    void DumpMessages();

    /// The number of places that were marked as bad.
    [[nodiscard]] std::uint64_t Bad() const { return bad; }

private:
    /// What the bytes of a field stand for.
    struct Value {
        std::string shown;
        std::string fault; ///< why the bytes are bad; empty if they are not
        std::int64_t number = 0;
        bool lost = false; ///< where the next field begins is not known
    };

    /// Whether another record or message begins; waits for it, with all that was said said.
    [[nodiscard]] bool Another();
    /// False if it is not known where what follows begins.
    bool DumpFields(const Layout& fields, const std::string& index);
    bool DumpGroup(const Field& group, const std::string& index);
    bool DumpField(const Field& field, const std::string& index);
    void DumpRest(const std::string& name, const std::string& fault);

    Value ReadNumber(Kind kind);
    Value ReadPrefixed(Kind kind);
    [[nodiscard]] Value ShowCharacter(std::string_view bytes) const;
    [[nodiscard]] Value ShowText(std::string_view bytes) const;
    /// A character of a text, or a byte that is none, as it may stand between quotes.
    [[nodiscard]] std::string Escaped(std::string_view bytes, std::uint32_t character,
                                      bool valid) const;

    /// Rows of some bytes, the first with the name, the value and the fault; behind each row its
    /// characters, if the bytes are `raw`.
    void Rows(std::uint64_t offset, std::string_view bytes, const std::string& name,
              const std::string& value, const std::string& fault, bool raw);
    void Row(std::uint64_t offset, std::string_view bytes, const std::string& name,
             const std::string& value, const std::string& fault);

    Source source;
    std::ostream& out;
    const Layout& layout;
    const Look look;
    std::size_t nameWidth;
    std::uint64_t bad = 0;
    /// The numbers so far, of this group and those around it.
    std::vector<std::pair<std::string_view, std::int64_t>> counts;
};

} // namespace tools

#endif
