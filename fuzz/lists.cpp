// SPDX-License-Identifier: MIT
//
// Texts that are taken apart and edited: delimited lists and the replacing of parts, each beside a
// second implementation on std::string. The first byte is the delimiter, and chooses a number.
#include "dsstring.h"

#include <vector>

#include "fuzz/support/require.h"

namespace {

std::string Escaped(const std::string& token, char delimiter) {
    dsString escaped;
    dsMkToken(token.c_str(), escaped, delimiter);
    std::string wanted;
    for (const char c : token)
        wanted += c == delimiter ? std::string(2, c) : std::string(1, c);
    Require(wanted == static_cast<const char*>(escaped));
    return wanted;
}

/// The tokens of a list. From the left, two delimiters in a row are one of the text.
std::vector<std::string> Tokens(const std::string& list, char delimiter) {
    std::vector<std::string> tokens(1);
    for (std::size_t at = 0; at < list.size(); ++at) {
        if (list[at] != delimiter)
            tokens.back() += list[at];
        else if (at + 1 < list.size() && list[at + 1] == delimiter)
            tokens.back() += list[at++];
        else if (at + 1 < list.size())
            tokens.emplace_back();
    }
    return tokens;
}

std::vector<std::string> Taken(const char* list, char delimiter) {
    std::vector<std::string> tokens;
    while (list != nullptr) {
        dsString token;
        list = dsGetNextToken(list, token, delimiter);
        tokens.emplace_back(static_cast<const char*>(token));
    }
    return tokens;
}

void CheckReplacing(const std::string& text, const std::string& find, const std::string& with,
                    int most) {
    dsString edited(text.c_str());
    std::string wanted;
    int count = 0;
    std::size_t at = 0;
    for (std::size_t found; count < most || most <= 0; ++count) {
        if ((found = text.find(find, at)) == text.npos)
            break;
        wanted += text.substr(at, found - at) + with;
        at = found + find.size();
    }
    wanted += text.substr(at);
    Require(edited.ReplaceSubStr(find.c_str(), with.c_str(), most) == count);
    Require(wanted == static_cast<const char*>(edited));

    const std::size_t from = find.size() % (text.size() + 1), to = with.size() % (text.size() + 1);
    std::string range = text;
    const bool changes = from != to || !with.empty();
    range.replace(std::min(from, to), from < to ? to - from : from - to, with);
    dsString cut(text.c_str());
    Require(cut.Replace(static_cast<unsigned int>(from), static_cast<unsigned int>(to),
                        with.c_str()) == changes);
    Require(range == static_cast<const char*>(cut));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const unsigned choice = input.Byte();
    const char delimiter = choice != 0 ? static_cast<char>(choice) : ',';
    std::vector<std::string> texts(3);
    for (std::string& text : texts)
        text = input.Text();
    while (!input.IsEmpty())
        texts.push_back(input.Text());

    Require(Taken(texts[0].c_str(), delimiter) == Tokens(texts[0], delimiter));
    if (!texts[1].empty())
        CheckReplacing(texts[0], texts[1], texts[2], static_cast<int>(choice) - 16);

    // What a list can hold comes back as it was put in.
    std::string list;
    std::vector<std::string> held;
    for (const std::string& text : texts) {
        if (!held.empty() && (text.empty() || text[0] == delimiter))
            continue;
        list += (held.empty() ? "" : std::string(1, delimiter)) + Escaped(text, delimiter);
        held.push_back(text);
    }
    Require(Taken(list.c_str(), delimiter) == held);
    return 0;
}
