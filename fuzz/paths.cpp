// SPDX-License-Identifier: MIT
//
// Paths beside a second implementation on std::string, in a locale that the first byte chooses. The
// second byte makes the first text longer, up to where it does not fit. What is converted to and
// fro must name the same file, and an object may be its own argument.
#include "pfupath.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <vector>

#include "fuzz/support/require.h"

namespace {

using Characters = std::vector<std::string_view>;

constexpr std::size_t longest = 1023;

bool IsSeparator(std::string_view character) {
    return character == "|" || character == "/" || character == "\\";
}

/// The characters of a native text. A byte that begins none is one.
Characters Split(std::string_view text) {
    Characters characters;
    characters.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); at += characters.back().size()) {
        std::mbstate_t state{};
        const std::size_t bytes = std::mbrlen(text.data() + at, text.size() - at, &state);
        characters.push_back(text.substr(at, bytes <= text.size() - at && bytes != 0 ? bytes : 1));
    }
    return characters;
}

/// The same names, set off by native separators.
std::string Native(const std::string& text) {
    std::string native;
    for (const std::string_view character : Split(text))
        native += IsSeparator(character) ? "/" : character;
    return native;
}

std::size_t Root(const std::string& text) {
    if (text[0] == '/' || text[0] == '|')
        return 1;
    const bool drive = std::isalpha(static_cast<unsigned char>(text[0])) != 0 && text[1] == ':' &&
                       (text[2] == '|' || text[2] == '\\');
    return drive ? 3 : 0;
}

std::string Fitting(const std::string& text) {
    return text.size() <= longest ? text : "";
}

void CheckSplits(const pfuDirPath& path, const std::string& text) {
    constexpr const char separators[] = "|/\\";
    const std::size_t root = Root(text), first = text.find_first_of(separators),
                      last = text.find_last_of(separators);
    const bool some = !text.empty();
    pfuDirEntry headName, tailName;
    pfuDirPath headPath, tailPath;
    Require(path.GetHead(headName) == some && path.GetTail(tailName) == some);
    Require(path.GetHead(headPath) == some && path.GetTail(tailPath) == some);
    const std::string head = first == text.npos ? text : text.substr(0, root ? root : first);
    const std::string rest = root ? text.substr(root) : text.substr(std::min(first, text.size()));
    Require(head == static_cast<const char*>(headName));
    Require((root || rest.empty() ? rest : rest.substr(1)) == static_cast<const char*>(tailPath));
    const bool split = last != text.npos && last >= root;
    Require(text.substr(0, split ? last : root) == static_cast<const char*>(headPath));
    Require(text.substr(last + 1) == static_cast<const char*>(tailName));

    pfuDirPath shrunk = path, cut = path;
    shrunk.GetHead(shrunk);
    cut.GetTail(cut);
    Require(std::strcmp(shrunk, headPath) == 0 && std::strcmp(cut, tailPath) == 0);
}

void CheckNative(const std::string& text) {
    const std::string wanted = Native(Fitting(text));
    const pfuOSPath native(text.c_str());
    Require(wanted == static_cast<const char*>(native));
    pfuDirPath neutral;
    native.ToNeutral(neutral);
    Require(wanted == static_cast<const char*>(pfuOSPath(neutral)));

    pfuOSPath pattern = native;
    pattern.AddWildcard();
    const std::string asked = wanted + (wanted.empty() || wanted.back() != '/' ? "/*" : "*");
    Require((asked.size() <= longest ? asked : wanted) == static_cast<const char*>(pattern));

    pfuOSPath trimmed = native;
    trimmed.TrimTrailSeps();
    Characters kept = Split(wanted);
    auto from = kept.begin();
    if (Root(wanted) != 0) {
        from = std::find_if(from, kept.end(), IsSeparator);
        from = std::find_if_not(from, kept.end(), IsSeparator);
    }
    while (kept.end() > from && IsSeparator(kept.back()))
        kept.pop_back();
    std::string joined;
    for (const std::string_view character : kept)
        joined += character;
    Require(joined == static_cast<const char*>(trimmed));
}

void CheckJoins(const std::string& base, const std::string& rest) {
    const std::string left = Fitting(base), right = Fitting(rest);
    const pfuDirPath path(base.c_str()), more(rest.c_str());
    Require(path.IsOverlong() == (base.size() > longest));
    pfuDirEntry name, twice;
    name = rest.c_str();
    const pfuDirPath joined(path, more);
    Require(std::strcmp(joined, pfuDirPath(path, name)) == 0);
    const std::string text = static_cast<const char*>(joined);
    if (right.empty() || path.IsOverlong() || (!left.empty() && left.size() + right.size() > 1021))
        Require(text == left);
    else if (left.empty())
        Require(text == right);
    else // the text behind a separator of whichever form, and the same names
        Require(text.size() == left.size() + right.size() + (Split(left).back() != "|") &&
                text.compare(0, left.size(), left) == 0 &&
                text.compare(text.size() - right.size(), right.size(), right) == 0 &&
                Native(text) ==
                    Native(left) + (Split(left).back() != "|" ? "/" : "") + Native(right));

    pfuDirPath self = path;
    self += self;
    Require(std::strcmp(self, pfuDirPath(path, path)) == 0);
    twice = right.c_str();
    twice += twice;
    Require((right.size() * 2 <= longest ? right + right : right) ==
            static_cast<const char*>(twice));
    const std::size_t part = left.size() / 2;
    self = path;
    self = static_cast<const char*>(self) + part;
    Require(left.substr(part) == static_cast<const char*>(self));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const char* const locales[] = {"C.UTF-8", "C", "en_US.ISO-8859-1", "zh_TW.BIG5"};
    if (std::setlocale(LC_ALL, locales[input.Byte() % 4]) == nullptr)
        return 0;
    std::string base(input.Byte() * 5, 'x');
    base += input.Text();
    const std::string rest = input.Text();
    for (const std::string& text : {base, rest}) {
        Require(pfuIsStringPathAbsolute(text.c_str()) == (Root(text) != 0));
        CheckNative(text);
        CheckSplits(text.c_str(), Fitting(text));
    }
    CheckJoins(base, rest);
    CheckJoins(rest, base);
    return 0;
}
