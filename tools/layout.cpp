// SPDX-License-Identifier: MIT
#include "layout.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace tools {

namespace {

constexpr std::array<std::pair<std::string_view, Kind>, 15> kinds{{
    {"char", Kind::Char},
    {"uchar", Kind::UChar},
    {"short", Kind::Short},
    {"ushort", Kind::UShort},
    {"int", Kind::Int},
    {"uint", Kind::UInt},
    {"long", Kind::Long},
    {"ulong", Kind::ULong},
    {"float", Kind::Float},
    {"double", Kind::Double},
    {"character", Kind::Character},
    {"text", Kind::Text},
    {"wide", Kind::Wide},
    {"block", Kind::Block},
    {"rest", Kind::Rest},
}};

constexpr int deepest = 16; // groups in groups

bool IsCount(const Field& field) {
    return field.kind <= Kind::ULong;
}

class Parser {
public:
    explicit Parser(std::string_view layout) : text(layout) {}

    Layout Parse() {
        Layout layout = ParseFields(0);
        if (at != text.size())
            Fail("',' expected");
        return layout;
    }

private:
    Layout ParseFields(int depth) {
        if (depth > deepest)
            Fail("too many groups in groups");
        Layout fields;
        const std::size_t outside = counts.size();
        do {
            fields.push_back(ParseField(depth));
            if (IsCount(fields.back()))
                counts.push_back(fields.back().name);
        } while (Take(','));
        counts.resize(outside);
        return fields;
    }

    Field ParseField(int depth) {
        Blanks();
        const std::size_t start = at;
        const std::string word = Word();
        if (Take('*')) {
            if (!word.empty() && std::find(counts.begin(), counts.end(), word) == counts.end())
                Fail("no number '" + word + "' before", start);
            if (!Take('('))
                Fail("'(' expected");
            Field group{Kind::Group, word, ParseFields(depth + 1)};
            if (!Take(')'))
                Fail("',' or ')' expected");
            return group;
        }
        const auto* const kind = std::find_if(
            kinds.begin(), kinds.end(), [&](const auto& known) { return known.first == word; });
        if (kind == kinds.end())
            Fail(word.empty() ? "a kind expected" : "no kind '" + word + "'", start);
        std::string name = Word();
        return {kind->second, name.empty() ? word : name, {}};
    }

    void Blanks() {
        while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0)
            ++at;
    }
    bool Take(char wanted) {
        Blanks();
        if (at == text.size() || text[at] != wanted)
            return false;
        ++at;
        return true;
    }
    std::string Word() {
        Blanks();
        const std::size_t start = at;
        while (at < text.size() && (std::isalnum(static_cast<unsigned char>(text[at])) != 0 ||
                                    std::string_view("_-.").find(text[at]) != std::string::npos))
            ++at;
        return std::string(text.substr(start, at - start));
    }

    [[noreturn]] void Fail(const std::string& what) const { Fail(what, at); }
    [[noreturn]] void Fail(const std::string& what, std::size_t place) const {
        const std::string before(text.substr(0, place));
        throw std::invalid_argument(
            "layout: " + what + (before.empty() ? " at the start" : " behind '" + before + "'"));
    }

    std::string_view text;
    std::size_t at = 0;
    std::vector<std::string> counts; ///< the names of the numbers so far, here and further out
};

} // namespace

Layout ParseLayout(std::string_view text) {
    return Parser(text).Parse();
}

} // namespace tools
