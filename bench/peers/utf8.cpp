// SPDX-License-Identifier: MIT
#include <mbconv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <Poco/Latin1Encoding.h>
#include <Poco/TextConverter.h>
#include <Poco/UTF8Encoding.h>
#include <glib.h>
#include <iconv.h>
#include <locale.h>
#include <stdlib.h>

#include "contest.h"

namespace {

/// A locale that the calling thread can have, and the name of its encoding.
struct Locale {
    locale_t locale;
    const char* encoding;
};

const Locale& Utf8() {
    static const Locale utf8{::newlocale(LC_ALL_MASK, "C.UTF-8", nullptr), "UTF-8"};
    return utf8;
}

/// Hosts seldom have one of these, so it is made.
const Locale& Latin1() {
    static const Locale latin1 = [] {
        std::string folder =
            (std::filesystem::temp_directory_path() / "plinth-locale-XXXXXX").string();
        if (::mkdtemp(folder.data()) == nullptr)
            std::abort();
        const std::string make = "localedef --no-archive -i en_US -f ISO-8859-1 " + folder +
                                 "/en_US.ISO-8859-1 >" + folder + "/messages 2>&1";
        ::setenv("LOCPATH", folder.c_str(), 1);
        const Locale made{std::system(make.c_str()) == 0
                              ? ::newlocale(LC_ALL_MASK, "en_US.ISO-8859-1", nullptr)
                              : nullptr,
                          "ISO-8859-1"};
        std::filesystem::remove_all(folder);
        return made;
    }();
    return latin1;
}

/// A text in the encoding of a locale, and in UTF-8.
struct Text {
    const Locale* locale;
    std::string native;
    std::string neutral;
};

bool Equal(const char* text, const std::string& expected) {
    return text != nullptr && text == expected;
}

struct Ours {
    explicit Ours(const char*) {}
    struct Delete {
        void operator()(char* text) const { operator delete(text); }
    };
    using Result = std::unique_ptr<char, Delete>;
    static Result To(const Text& text) { return Result(mbxNativeToNeut(text.native.c_str())); }
    static Result From(const Text& text) { return Result(mbxNeutToNative(text.neutral.c_str())); }
    static const char* Get(const Result& result) { return result.get(); }
};

struct Glib {
    explicit Glib(const char*) {}
    using Result = std::unique_ptr<gchar, decltype(&g_free)>;
    static Result To(const Text& text) {
        return {g_locale_to_utf8(text.native.c_str(), -1, nullptr, nullptr, nullptr), g_free};
    }
    static Result From(const Text& text) {
        return {g_locale_from_utf8(text.neutral.c_str(), -1, nullptr, nullptr, nullptr), g_free};
    }
    static const char* Get(const Result& result) { return result.get(); }
};

struct PocoConverter {
    explicit PocoConverter(const char* encoding)
        : native(std::strcmp(encoding, "UTF-8") == 0 ? static_cast<const Poco::TextEncoding&>(utf8)
                                                     : latin1),
          to(native, utf8), from(utf8, native) {}
    PocoConverter(const PocoConverter&) = delete;
    PocoConverter& operator=(const PocoConverter&) = delete;
    static std::string Convert(Poco::TextConverter& converter, const std::string& text) {
        std::string result;
        result.reserve(2 * text.size());
        if (converter.convert(text, result) != 0)
            std::abort();
        return result;
    }
    std::string To(const Text& text) { return Convert(to, text.native); }
    std::string From(const Text& text) { return Convert(from, text.neutral); }
    static const char* Get(const std::string& result) { return result.c_str(); }

private:
    Poco::UTF8Encoding utf8;
    Poco::Latin1Encoding latin1;
    const Poco::TextEncoding& native;
    Poco::TextConverter to, from;
};

/// A converter is opened once, and the room is known to suffice: as a limit it is a fair one.
struct Iconv {
    explicit Iconv(const char* encoding)
        : to(::iconv_open("UTF-8", encoding)), from(::iconv_open(encoding, "UTF-8")) {}
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;
    ~Iconv() {
        ::iconv_close(to);
        ::iconv_close(from);
    }
    using Result = std::unique_ptr<char[]>;
    static Result Convert(iconv_t converter, const std::string& text, std::size_t room) {
        Result result = std::make_unique_for_overwrite<char[]>(room + 1);
        char *source = const_cast<char*>(text.c_str()), *target = result.get();
        std::size_t left = text.size();
        if (::iconv(converter, &source, &left, &target, &room) == static_cast<std::size_t>(-1))
            std::abort();
        *target = '\0';
        return result;
    }
    Result To(const Text& text) { return Convert(to, text.native, 2 * text.native.size()); }
    Result From(const Text& text) { return Convert(from, text.neutral, text.neutral.size()); }
    static const char* Get(const Result& result) { return result.get(); }

private:
    iconv_t to, from;
};

/// The bytes alone, where the two forms are the same.
struct Copy {
    explicit Copy(const char*) {}
    using Result = std::unique_ptr<char[]>;
    static Result Of(const std::string& text) {
        Result result = std::make_unique_for_overwrite<char[]>(text.size() + 1);
        std::memcpy(result.get(), text.c_str(), text.size() + 1);
        return result;
    }
    static Result To(const Text& text) { return Of(text.neutral); }
    static Result From(const Text& text) { return Of(text.native); }
    static const char* Get(const Result& result) { return result.get(); }
};

template <typename Contender>
void Enter(const std::string& name, const Text& text, const char* contender) {
    const auto enter = [&](const char* direction, auto convert, const std::string& expected) {
        contest::Contend({name + direction}, contender, [=, &text](benchmark::State& state) {
            const locale_t former = ::uselocale(text.locale->locale);
            {
                Contender converter(text.locale->encoding);
                if (!Equal(Contender::Get(convert(converter, text)), expected))
                    state.SkipWithError("what came out is not the same text");
                for (auto _ : state)
                    benchmark::DoNotOptimize(convert(converter, text));
            }
            ::uselocale(former);
        });
    };
    enter(
        ", to UTF-8", [](Contender& to, const Text& what) { return to.To(what); }, text.neutral);
    enter(
        ", from UTF-8", [](Contender& from, const Text& what) { return from.From(what); },
        text.native);
}

/// Words in no order that a processor could learn by heart.
std::string Words(std::vector<std::string> from, int count) {
    std::mt19937 random(20240229);
    std::string text;
    for (int i = 0; i < count; ++i)
        text += from[random() % from.size()] + ' ';
    return text;
}

/// Of UTF-8 that has no characters but those of ISO-8859-1.
std::string ToLatin1(const std::string& text) {
    std::string latin1;
    for (std::size_t i = 0; i < text.size(); ++i)
        if ((text[i] & 0x80) == 0) {
            latin1 += text[i];
        } else {
            latin1 += static_cast<char>((text[i] & 3) << 6 | (text[i + 1] & 0x3F));
            ++i;
        }
    return latin1;
}

} // namespace

void Contestants() {
    if (Latin1().locale == nullptr || Utf8().locale == nullptr) {
        std::fputs("no locale C.UTF-8, or no localedef to make one for ISO-8859-1\n", stderr);
        std::exit(1);
    }
    const std::vector<std::string>
        ascii = {"plain",   "text", "of", "a",       "locale", "in",   "any",
                 "country", "has",  "no", "letters", "but",    "these"},
        latin = {"Gr\u00FC\u00DFe", "aus",  "K\u00F6ln", "viele",        "und",
                 "sch\u00F6ne",     "Tage", "\u00FCber", "dem",          "Flu\u00DF",
                 "m\u00F6chten",    "wir",  "Ihnen",     "w\u00FCnschen"},
        mixed = {"\u6F22\u5B57", "and",    "plain",
                 "\u20AC",       "text",   "\u304B\u306A\u4EA4\u3058\u308A",
                 "na\u00EFve",   "\u2013", "100",
                 "\U0001F600",   "words",  "\u00E9t\u00E9"};
    const struct {
        const char* name;
        const Locale& locale;
        const std::vector<std::string>& words;
    } kinds[] = {
        {"ASCII", Utf8(), ascii},
        {"Latin", Utf8(), latin},
        {"mixed", Utf8(), mixed},
        {"ASCII in ISO-8859-1", Latin1(), ascii},
        {"Latin in ISO-8859-1", Latin1(), latin},
    };
    static std::vector<std::unique_ptr<const Text>> texts;
    for (const auto& kind : kinds) {
        for (const auto& [length, count] : {std::pair(", short", 10), std::pair(", long", 10000)}) {
            const std::string neutral = Words(kind.words, count);
            const bool isLatin1 = &kind.locale == &Latin1();
            const Text& text = *texts.emplace_back(std::make_unique<Text>(
                Text{&kind.locale, isLatin1 ? ToLatin1(neutral) : neutral, neutral}));
            const std::string name = std::string(kind.name) + length;
            Enter<Ours>(name, text, contest::Plinth);
            Enter<Iconv>(name, text, "iconv");
            Enter<PocoConverter>(name, text, "POCO TextConverter");
            Enter<Glib>(name, text, "GLib g_locale_to_utf8");
            Enter<Copy>(name, text, contest::PlainCode);
        }
    }
}
