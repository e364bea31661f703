// SPDX-License-Identifier: MIT
#include <mbconv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
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

} // namespace

void Contestants() {
    struct Unit {
        const char* name;
        const Locale& locale;
        const char* native;
        const char* neutral;
    };
    const Unit units[] = {
        {"ASCII", Utf8(), "plain ascii text ", "plain ascii text "},
        {"Latin", Utf8(),
         "Gr\xC3\xBC\xC3\x9F"
         "e aus K\xC3\xB6ln, viele ",
         "Gr\xC3\xBC\xC3\x9F"
         "e aus K\xC3\xB6ln, viele "},
        {"mixed", Utf8(), "\xE6\xBC\xA2\xE5\xAD\x97 and plain \xE2\x82\xAC text \xC3\xA9, ",
         "\xE6\xBC\xA2\xE5\xAD\x97 and plain \xE2\x82\xAC text \xC3\xA9, "},
        {"ASCII in ISO-8859-1", Latin1(), "plain ascii text ", "plain ascii text "},
        {"Latin in ISO-8859-1", Latin1(),
         "Gr\xFC\xDF"
         "e aus K\xF6ln, viele ",
         "Gr\xC3\xBC\xC3\x9F"
         "e aus K\xC3\xB6ln, viele "},
    };
    if (Latin1().locale == nullptr || Utf8().locale == nullptr) {
        std::fputs("no locale C.UTF-8, or no localedef to make one for ISO-8859-1\n", stderr);
        std::exit(1);
    }
    static std::vector<std::unique_ptr<const Text>> texts;
    for (const Unit& unit : units) {
        for (const std::size_t repeats : {3, 3000}) {
            std::string native, neutral;
            for (std::size_t i = 0; i < repeats; ++i) {
                native += unit.native;
                neutral += unit.neutral;
            }
            const Text& text =
                *texts.emplace_back(std::make_unique<Text>(Text{&unit.locale, native, neutral}));
            const std::string name = std::string(unit.name) + (repeats == 3 ? ", short" : ", long");
            Enter<Ours>(name, text, contest::Plinth);
            Enter<Iconv>(name, text, "iconv");
            Enter<PocoConverter>(name, text, "POCO TextConverter");
            Enter<Glib>(name, text, "GLib g_locale_to_utf8");
            Enter<Copy>(name, text, contest::PlainCode);
        }
    }
}
