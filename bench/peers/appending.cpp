// SPDX-License-Identifier: MIT
#include <dsdatcol.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <apr_general.h>
#include <apr_pools.h>
#include <apr_tables.h>
#include <boost/container/vector.hpp>
#include <glib.h>

#include "contest.h"

namespace {

const char block[4096] = {};

constexpr std::size_t Sizes[] = {16'000, 160'000, 1'600'000, 16'000'000};

struct Ours {
    dsXArray<char> bytes{nullptr};
    explicit Ours(std::size_t) {}
    void Append(unsigned int count) { bytes.Append(count, block); }
    void Put(char byte) { bytes += byte; }
    const char* Data() const { return bytes.GetDataPtr(); }
};

template <typename Vector>
struct Standard {
    Vector bytes;
    explicit Standard(std::size_t) {}
    void Append(unsigned int count) { bytes.insert(bytes.end(), block, block + count); }
    void Put(char byte) { bytes.push_back(byte); }
    const char* Data() const { return bytes.data(); }
};

struct Glib {
    GByteArray* bytes = g_byte_array_new();
    explicit Glib(std::size_t) {}
    Glib(const Glib&) = delete;
    Glib& operator=(const Glib&) = delete;
    ~Glib() { g_byte_array_unref(bytes); }
    void Append(unsigned int count) {
        g_byte_array_append(bytes, reinterpret_cast<const guint8*>(block), count);
    }
    void Put(char byte) { g_byte_array_append(bytes, reinterpret_cast<const guint8*>(&byte), 1); }
    const guint8* Data() const { return bytes->data; }
};

/// Its arrays take elements one by one only.
struct Apr {
    apr_pool_t* pool = nullptr;
    apr_array_header_t* bytes;
    explicit Apr(std::size_t) {
        apr_pool_create(&pool, nullptr);
        bytes = apr_array_make(pool, 16, 1);
    }
    Apr(const Apr&) = delete;
    Apr& operator=(const Apr&) = delete;
    ~Apr() { apr_pool_destroy(pool); }
    void Put(char byte) { *static_cast<char*>(apr_array_push(bytes)) = byte; }
    const char* Data() const { return bytes->elts; }
};

struct Memory {
    std::unique_ptr<char, decltype(&std::free)> bytes;
    char* end;
    explicit Memory(std::size_t size)
        : bytes(static_cast<char*>(std::malloc(size)), std::free), end(bytes.get()) {}
    void Append(unsigned int count) {
        std::memcpy(end, block, count);
        end += count;
    }
    void Put(char byte) { *end++ = byte; }
    const char* Data() const { return bytes.get(); }
};

template <typename Array>
void Blocks(const char* contender) {
    for (const unsigned int count : {4096U, 100U})
        for (const std::size_t size : Sizes)
            contest::Contend({"blocks of " + std::to_string(count) + " bytes", size}, contender,
                             [=](benchmark::State& state) {
                                 for (auto _ : state) {
                                     Array array(size + count);
                                     for (std::size_t done = 0; done < size; done += count)
                                         array.Append(count);
                                     benchmark::DoNotOptimize(array.Data());
                                 }
                             });
}

template <typename Array>
void Bytes(const char* contender) {
    for (const std::size_t size : Sizes)
        contest::Contend({"byte by byte", size}, contender, [=](benchmark::State& state) {
            for (auto _ : state) {
                Array array(size);
                for (std::size_t done = 0; done < size; ++done)
                    array.Put(static_cast<char>(done));
                benchmark::DoNotOptimize(array.Data());
            }
        });
}

template <typename Array>
void Both(const char* contender) {
    Blocks<Array>(contender);
    Bytes<Array>(contender);
}

} // namespace

void Contestants() {
    apr_initialize();
    Both<Ours>(contest::Plinth);
    Both<Standard<std::vector<char>>>("std::vector");
    Both<Standard<boost::container::vector<char>>>("boost::container::vector");
    Both<Glib>("GByteArray");
    Bytes<Apr>("apr_array");
    Both<Memory>(contest::PlainCode);
}
