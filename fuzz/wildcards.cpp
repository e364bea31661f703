// SPDX-License-Identifier: MIT
//
// Wildcards over the names of a folder: a pattern and then the names, each up to a NUL, in a locale
// that the first byte chooses, beside the plain recursive matcher.
#include "pfudir.h"

#include <clocale>
#include <cstring>
#include <cwchar>
#include <memory>
#include <vector>

#include "fuzz/support/require.h"
#include "outside/win32/handles.h"

namespace {

/// The characters of a native text as numbers; a byte that begins none is one that no character is.
std::vector<long> Characters(const std::string& text) {
    std::vector<long> characters;
    for (std::size_t at = 0; at < text.size();) {
        wchar_t wide = 0;
        std::mbstate_t state{};
        const std::size_t bytes = std::mbrtowc(&wide, text.data() + at, text.size() - at, &state);
        const bool none = bytes == 0 || bytes > text.size() - at;
        characters.push_back(none ? -1L - static_cast<unsigned char>(text[at]) : wide);
        at += none ? 1 : bytes;
    }
    return characters;
}

/// Whether `name` from `n` on matches `pattern` from `p` on. What was asked before is remembered.
class Matcher {
public:
    Matcher(const std::string& pattern, const std::string& name)
        : wanted(Characters(pattern)), given(Characters(name)),
          known((wanted.size() + 1) * (given.size() + 1), -1) {}

    bool Matches(std::size_t p = 0, std::size_t n = 0) {
        signed char& result = known[p * (given.size() + 1) + n];
        if (result < 0)
            result = Try(p, n) ? 1 : 0;
        return result == 1;
    }

private:
    bool Try(std::size_t p, std::size_t n) {
        if (p == wanted.size())
            return n == given.size();
        if (wanted[p] == L'*')
            return Matches(p + 1, n) || (n < given.size() && Matches(p, n + 1));
        return n < given.size() && (wanted[p] == L'?' || wanted[p] == given[n]) &&
               Matches(p + 1, n + 1);
    }

    const std::vector<long> wanted, given;
    std::vector<signed char> known;
};

const WIN32_FIND_DATAA nothing{};

/// A folder of these names.
class Folder : public pfuDirImplementation {
public:
    explicit Folder(const std::vector<std::string>& entries)
        : pfuDirImplementation(nothing, zelHandleOfDescriptor(-1)), names(entries) {}

    bool Read(pfuDirEntry& entry) override {
        if (at == names.size())
            return false;
        entry = names[at++].c_str();
        return true;
    }

private:
    const std::vector<std::string>& names;
    std::size_t at = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const char* const locales[] = {"C.UTF-8", "C", "en_US.ISO-8859-1", "zh_TW.BIG5"};
    if (std::setlocale(LC_ALL, locales[input.Byte() % 4]) == nullptr || size > 600)
        return 0;
    const std::string pattern = input.Text();
    std::vector<std::string> names, wanted;
    while (!input.IsEmpty()) {
        names.push_back(input.Text());
        if (!pattern.empty() && Matcher(pattern, names.back()).Matches())
            wanted.push_back(names.back());
    }

    Folder folder(names), again(names);
    std::vector<std::string> found;
    pfuDirEntry entry;
    while (!pattern.empty() && folder.ReadNextMatching(entry, pattern.c_str()))
        found.emplace_back(static_cast<const char*>(entry));
    Require(found == wanted);

    dsXArray<pfuDirPath*> paths(nullptr);
    Require(again.ExpandPattern(pattern.c_str(), paths) == !wanted.empty());
    Require(paths.GetSize() == wanted.size());
    for (unsigned int i = 0; i < paths.GetSize(); ++i) {
        const std::unique_ptr<pfuDirPath> path(paths[i]);
        Require(wanted[i] == static_cast<const char*>(*path));
    }
    return 0;
}
