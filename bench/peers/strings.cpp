// SPDX-License-Identifier: MIT
#include <dsstring.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <Poco/NumberFormatter.h>
#include <Poco/String.h>
#include <benchmark/benchmark.h>
#include <glib.h>

#include "contest.h"

namespace {

constexpr const char* Short = "part_17";
constexpr const char* Long = "assembly/subassembly/part_1234567890/surface";
constexpr const char* Piece = "/item_123456789."; // 16 bytes
constexpr std::size_t Sizes[] = {160, 1600, 16'000, 160'000};

/// The text, of which nothing is known at compile time.
const char* Opaque(const char* text) {
    benchmark::DoNotOptimize(text);
    return text;
}

std::string Pieces(std::size_t size) {
    std::string text;
    while (text.size() < size)
        text += Piece;
    return text;
}

// What each contender can do with a text of its own.

struct Ours {
    dsString text;
    Ours() = default;
    explicit Ours(const char* from) : text(from) {}
    Ours(const char* a, const char* b) : text(a, b) {}
    void Append(const char* piece) { text += piece; }
    void ReplaceAll(const char* find, const char* with) { text.ReplaceSubStr(find, with, 0); }
    void ReplaceRange(unsigned int from, unsigned int to, const char* with) {
        text.Replace(from, to, with);
    }
    void Number(int value) { ToString(value, text, ToStringDecimal); }
    void HexNumber(unsigned int value) { ToString(value, text, ToStringHex); }
    const char* Bytes() const { return text; }
};

struct Standard {
    std::string text;
    Standard() = default;
    explicit Standard(const char* from) : text(from) {}
    Standard(const char* a, const char* b) : text(std::string(a).append(b)) {}
    void Append(const char* piece) { text += piece; }
    void ReplaceAll(std::string_view find, std::string_view with) {
        std::string replaced;
        std::size_t from = 0;
        for (std::size_t hit; (hit = text.find(find, from)) != std::string::npos;
             from = hit + find.size())
            replaced.append(text, from, hit - from).append(with);
        text = std::move(replaced.append(text, from));
    }
    void ReplaceRange(unsigned int from, unsigned int to, const char* with) {
        text.replace(from, to - from, with);
    }
    void Number(int value) { text = std::to_string(value); }
    void HexNumber(unsigned int value) {
        char digits[sizeof value * 2];
        text.assign(digits, std::to_chars(digits, digits + sizeof digits, value, 16).ptr);
    }
    const char* Bytes() const { return text.c_str(); }
};

struct PocoText {
    std::string text;
    PocoText() = default;
    explicit PocoText(const char* from) : text(from) {}
    PocoText(const char* a, const char* b) : text(Poco::cat<std::string>(a, b)) {}
    void ReplaceAll(const char* find, const char* with) { Poco::replaceInPlace(text, find, with); }
    void Number(int value) { text = Poco::NumberFormatter::format(value); }
    void HexNumber(unsigned int value) { text = Poco::NumberFormatter::formatHex(value); }
    const char* Bytes() const { return text.c_str(); }
};

struct Glib {
    GString* text;
    Glib() : text(g_string_new(nullptr)) {}
    explicit Glib(const char* from) : text(g_string_new(from)) {}
    Glib(const char* a, const char* b) : text(g_string_append(g_string_new(a), b)) {}
    Glib(const Glib&) = delete;
    Glib& operator=(const Glib&) = delete;
    ~Glib() { g_string_free(text, TRUE); }
    void Append(const char* piece) { g_string_append(text, piece); }
    void ReplaceAll(const char* find, const char* with) { g_string_replace(text, find, with, 0); }
    void ReplaceRange(unsigned int from, unsigned int to, const char* with) {
        g_string_insert(g_string_erase(text, from, to - from), from, with);
    }
    void Number(int value) { g_string_printf(text, "%d", value); }
    void HexNumber(unsigned int value) { g_string_printf(text, "%x", value); }
    const char* Bytes() const { return text->str; }
};

/// Memory that is large enough, and what fills it.
struct Memory {
    std::unique_ptr<char[]> text;
    char* end;
    explicit Memory(std::size_t room = 32) : text(new char[room]), end(text.get()) { *end = '\0'; }
    explicit Memory(const char* from) : Memory(std::strlen(from) + 1) { Append(from); }
    Memory(const char* a, const char* b) : Memory(std::strlen(a) + std::strlen(b) + 1) {
        Append(a);
        Append(b);
    }
    void Append(const char* piece) {
        const std::size_t length = std::strlen(piece);
        std::memcpy(end, piece, length + 1);
        end += length;
    }
    void ReplaceAll(const char* find, const char* with) {
        const std::size_t length = static_cast<std::size_t>(end - text.get());
        Memory replaced(length / std::strlen(find) * std::strlen(with) + length + 1);
        const char* from = text.get();
        for (const char* hit; (hit = std::strstr(from, find)) != nullptr;
             from = hit + std::strlen(find)) {
            replaced.end = std::copy(from, hit, replaced.end);
            replaced.Append(with);
        }
        replaced.Append(from);
        *this = std::move(replaced);
    }
    void Number(int value) { *std::to_chars(text.get(), text.get() + 31, value).ptr = '\0'; }
    void HexNumber(unsigned int value) {
        *std::to_chars(text.get(), text.get() + 31, value, 16).ptr = '\0';
    }
    const char* Bytes() const { return text.get(); }
};

template <typename Text>
void Building(const char* contender) {
    for (const auto& [name, text] : {std::pair{"build, 7 bytes", Short}, {"build, 44 bytes", Long}})
        contest::Contend({name}, contender, [text = text](benchmark::State& state) {
            const char* const from = Opaque(text);
            for (auto _ : state) {
                const Text built(from);
                benchmark::DoNotOptimize(built.Bytes());
            }
        });
    contest::Contend({"build of two texts"}, contender, [](benchmark::State& state) {
        const char *const first = Opaque(Long), *const second = Opaque(Piece);
        for (auto _ : state) {
            const Text text(first, second);
            benchmark::DoNotOptimize(text.Bytes());
        }
    });
}

template <typename Text>
void Replacing(const char* contender) {
    for (const std::size_t size : Sizes)
        contest::Contend({"copy and replace all", size}, contender, [=](benchmark::State& state) {
            const std::string from = Pieces(size);
            const char *const find = Opaque("item"), *const with = Opaque("entry");
            for (auto _ : state) {
                Text text(from.c_str());
                text.ReplaceAll(find, with);
                benchmark::DoNotOptimize(text.Bytes());
            }
        });
    if constexpr (requires(Text text) { text.ReplaceRange(0, 0, ""); })
        contest::Contend({"copy and replace a range"}, contender, [](benchmark::State& state) {
            const char *const from = Opaque(Long), *const with = Opaque("component");
            for (auto _ : state) {
                Text text(from);
                text.ReplaceRange(9, 20, with);
                benchmark::DoNotOptimize(text.Bytes());
            }
        });
}

template <typename Text>
void Appending(const char* contender) {
    for (const std::size_t size : Sizes)
        contest::Contend({"append pieces", size}, contender, [=](benchmark::State& state) {
            const char* const piece = Opaque(Piece);
            for (auto _ : state) {
                Text text = [&] {
                    if constexpr (std::is_same_v<Text, Memory>)
                        return Memory(size + 1);
                    else
                        return Text();
                }();
                for (std::size_t done = 0; done < size; done += 16)
                    text.Append(piece);
                benchmark::DoNotOptimize(text.Bytes());
            }
        });
}

/// Numbers of one to ten digits, and their negative.
std::vector<int> Numbers() {
    std::mt19937 random(1);
    std::vector<int> numbers;
    for (int i = 0; i < 1024; ++i)
        numbers.push_back(static_cast<int>(random()) >> random() % 32);
    return numbers;
}

template <typename Text>
void Numbering(const char* contender) {
    const auto number = [=](const char* name, auto write) {
        contest::Contend({name}, contender, [=](benchmark::State& state) {
            const std::vector<int> numbers = Numbers();
            Text text;
            std::size_t i = 0;
            for (auto _ : state) {
                write(text, numbers[i++ % 1024]);
                benchmark::DoNotOptimize(text.Bytes());
            }
        });
    };
    number("number to text", [](Text& text, int value) { text.Number(value); });
    number("number to text, hexadecimal",
           [](Text& text, int value) { text.HexNumber(static_cast<unsigned int>(value)); });
}

/// Stops the row if the text is not as it should be.
template <typename Text>
void Expect(const Text& text, std::string_view expected) {
    if (text.Bytes() != expected)
        std::abort();
}

template <typename Text>
void All(const char* contender) {
    Expect(Text(Long), Long);
    Expect(Text(Long, Piece), std::string(Long) + Piece);
    Text text("a_b__c");
    text.ReplaceAll("_", "12");
    Expect(text, "a12b1212c");
    if constexpr (requires { text.ReplaceRange(0, 0, ""); }) {
        text.ReplaceRange(1, 3, "_");
        Expect(text, "a_b1212c");
    }
    Text digits;
    digits.Number(std::numeric_limits<int>::min());
    Expect(digits, "-2147483648");
    digits.HexNumber(0xFF12);
    const std::string_view upper = "FF12", lower = "ff12"; // each as it likes
    Expect(digits, digits.Bytes()[0] == 'F' ? upper : lower);

    Building<Text>(contender);
    Replacing<Text>(contender);
    if constexpr (requires { text.Append(""); })
        Appending<Text>(contender);
    Numbering<Text>(contender);
}

} // namespace

void Contestants() {
    All<Ours>(contest::Plinth);
    All<Standard>("std::string");
    All<PocoText>("POCO String, NumberFormatter");
    All<Glib>("GString");
    All<Memory>(contest::PlainCode);
}
