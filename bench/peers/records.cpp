// SPDX-License-Identifier: MIT
#include <bdtstream.h>
#include <dsstring.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <Poco/BinaryReader.h>
#include <Poco/BinaryWriter.h>
#include <cereal/archives/portable_binary.hpp>
#include <cereal/types/string.hpp>

#include "contest.h"

namespace {

constexpr int Records = 1000;

enum Part { Whole, Numbers, Text };

/// What a record is: the texts are of the type that the contender's users have.
template <typename String>
struct Record {
    std::int32_t number = 0;
    double real = 0;
    std::int16_t small = 0;
    String text;
};

std::string TextOf(int i) {
    std::string text = "record " + std::to_string(i) + " with some plain text";
    text.resize(static_cast<std::size_t>(24 + i * 7 % 17), '.');
    return text;
}

template <typename String>
std::vector<Record<String>> MakeRecords(int first) {
    std::vector<Record<String>> records(Records);
    int i = first; // up or down from there
    for (Record<String>& record : records) {
        record.number = 1'000'003 * i;
        record.real = 0.1 * i;
        record.small = static_cast<std::int16_t>(i - Records / 2);
        record.text = TextOf(i).c_str();
        i += first == 0 ? 1 : -1;
    }
    return records;
}

std::string_view View(const std::string& text) {
    return text;
}
std::string_view View(const dsString& text) {
    return static_cast<const char*>(text);
}

struct Ours {
    using String = dsString;
    static void Encode(std::stringstream& stream, Part part,
                       const std::vector<Record<String>>& records) {
        bdtOStream out(stream.rdbuf(), 1);
        for (const Record<String>& record : records) {
            if (part != Text)
                out << record.number << record.real << record.small;
            if (part != Numbers)
                out << static_cast<const char*>(record.text);
        }
        if (!out)
            std::abort();
    }
    static void Decode(std::stringstream& stream, Part part, std::vector<Record<String>>& records) {
        bdtIStream in(stream.rdbuf(), 1);
        for (Record<String>& record : records) {
            if (part != Text)
                in >> record.number >> record.real >> record.small;
            if (part != Numbers)
                in >> record.text;
        }
        if (!in)
            std::abort();
    }
};

struct PocoBinary {
    using String = std::string;
    static void Encode(std::stringstream& stream, Part part,
                       const std::vector<Record<String>>& records) {
        Poco::BinaryWriter out(stream, Poco::BinaryWriter::NETWORK_BYTE_ORDER);
        for (const Record<String>& record : records) {
            if (part != Text)
                out << record.number << record.real << record.small;
            if (part != Numbers)
                out << record.text;
        }
        if (!out.good())
            std::abort();
    }
    static void Decode(std::stringstream& stream, Part part, std::vector<Record<String>>& records) {
        Poco::BinaryReader in(stream, Poco::BinaryReader::NETWORK_BYTE_ORDER);
        for (Record<String>& record : records) {
            if (part != Text)
                in >> record.number >> record.real >> record.small;
            if (part != Numbers)
                in >> record.text;
        }
        if (!in.good())
            std::abort();
    }
};

struct Cereal {
    using String = std::string;
    static void Encode(std::stringstream& stream, Part part,
                       const std::vector<Record<String>>& records) {
        cereal::PortableBinaryOutputArchive out(stream);
        for (const Record<String>& record : records) {
            if (part != Text)
                out(record.number, record.real, record.small);
            if (part != Numbers)
                out(record.text);
        }
    }
    static void Decode(std::stringstream& stream, Part part, std::vector<Record<String>>& records) {
        cereal::PortableBinaryInputArchive in(stream);
        for (Record<String>& record : records) {
            if (part != Text)
                in(record.number, record.real, record.small);
            if (part != Numbers)
                in(record.text);
        }
    }
};

/// Our format, written by hand into memory that is known to suffice.
struct ByHand {
    using String = std::string;
    static std::vector<char>& Memory() {
        static std::vector<char> memory(Records * 64);
        return memory;
    }
    static std::uint32_t Swapped(std::uint32_t word) { return __builtin_bswap32(word); }
    static std::uint64_t Swapped(std::uint64_t word) { return __builtin_bswap64(word); }
    template <typename Word>
    static void Put(char*& at, Word word) {
        word = Swapped(word);
        std::memcpy(at, &word, sizeof word);
        at += sizeof word;
    }
    template <typename Word>
    static Word Get(const char*& at) {
        Word word;
        std::memcpy(&word, at, sizeof word);
        at += sizeof word;
        return Swapped(word);
    }
    static void Encode(std::stringstream&, Part part, const std::vector<Record<String>>& records) {
        char* at = Memory().data();
        for (const Record<String>& record : records) {
            if (part != Text) {
                std::uint64_t real;
                std::memcpy(&real, &record.real, sizeof real);
                Put(at, static_cast<std::uint32_t>(record.number));
                Put(at, real);
                Put(at, static_cast<std::uint32_t>(record.small));
            }
            if (part != Numbers) {
                Put(at, static_cast<std::uint32_t>(record.text.size()));
                std::memcpy(at, record.text.data(), record.text.size());
                at += record.text.size();
            }
        }
        benchmark::ClobberMemory();
    }
    static void Decode(std::stringstream&, Part part, std::vector<Record<String>>& records) {
        const char* at = Memory().data();
        for (Record<String>& record : records) {
            if (part != Text) {
                record.number = static_cast<std::int32_t>(Get<std::uint32_t>(at));
                const std::uint64_t real = Get<std::uint64_t>(at);
                std::memcpy(&record.real, &real, sizeof real);
                record.small = static_cast<std::int16_t>(Get<std::uint32_t>(at));
            }
            if (part != Numbers) {
                const std::uint32_t size = Get<std::uint32_t>(at);
                record.text.assign(at, size);
                at += size;
            }
        }
    }
};

/// What comes back is what was sent.
template <typename String>
bool Equal(Part part, const std::vector<Record<String>>& sent,
           const std::vector<Record<String>>& come) {
    for (std::size_t i = 0; i < sent.size(); ++i) {
        if (part != Text && (sent[i].number != come[i].number || sent[i].real != come[i].real ||
                             sent[i].small != come[i].small))
            return false;
        if (part != Numbers && View(sent[i].text) != View(come[i].text))
            return false;
    }
    return true;
}

template <typename Contender>
void Enter(const char* contender) {
    using String = typename Contender::String;
    static const std::vector<Record<String>> records = MakeRecords<String>(0);
    static const std::vector<Record<String>> backwards = MakeRecords<String>(Records - 1);
    const struct {
        Part part;
        const char* name;
    } parts[] = {{Whole, "records"}, {Numbers, "numbers"}, {Text, "text"}};
    for (const auto& [part, name] : parts) {
        const auto check = [part = part](benchmark::State& state, std::stringstream& stream,
                                         const std::vector<Record<String>>& sent) {
            std::vector<Record<String>> come(sent.size());
            Contender::Encode(stream, part, sent);
            Contender::Decode(stream, part, come);
            if (!Equal(part, sent, come))
                state.SkipWithError("what came back is not what was sent");
        };
        contest::Contend({std::string("encode ") + name}, contender,
                         [=, part = part](benchmark::State& state) {
                             std::stringstream stream;
                             check(state, stream, records);
                             for (auto _ : state) {
                                 stream.seekp(0);
                                 Contender::Encode(stream, part, records);
                             }
                         });
        contest::Contend({std::string("decode ") + name}, contender,
                         [=, part = part](benchmark::State& state) {
                             // A text takes the place of one of another length.
                             std::stringstream streams[2];
                             check(state, streams[0], records);
                             check(state, streams[1], backwards);
                             std::vector<Record<String>> come(records.size());
                             int next = 0;
                             for (auto _ : state) {
                                 streams[next].seekg(0);
                                 Contender::Decode(streams[next], part, come);
                                 next ^= 1;
                                 benchmark::DoNotOptimize(come.data());
                             }
                         });
    }
}

} // namespace

void Contestants() {
    Enter<Ours>(contest::Plinth);
    Enter<PocoBinary>("POCO BinaryWriter, BinaryReader");
    Enter<Cereal>("cereal portable binary");
    Enter<ByHand>(contest::PlainCode);
}
