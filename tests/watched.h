// SPDX-License-Identifier: MIT
//
// An array that writes down what is asked of its policy, can run out of memory, and shows its own
// check. All arrays of one element type write into one list.
#ifndef PLINTH_TESTS_WATCHED_H
#define PLINTH_TESTS_WATCHED_H

#include <dsdatcol.h>

#include <new>
#include <string>
#include <utility>

template <typename T>
class Watched : public dsXArray<T> {
public:
    explicit Watched(const dsXACtrl* control = nullptr) : dsXArray<T>(control) { calls.clear(); }
    using dsXArray<T>::IsConsistent;

    T* AllocElems(unsigned int count) const override {
        return Note("alloc", count), dsXArray<T>::AllocElems(count);
    }
    T* ReallocElems(T* elems, unsigned int used, unsigned int newCount) const override {
        return Note("realloc", newCount), dsXArray<T>::ReallocElems(elems, used, newCount);
    }
    void CopyElems(const T* source, T* target, unsigned int count) const override {
        Note("copy", count), dsXArray<T>::CopyElems(source, target, count);
    }
    /// The calls since the last look: "alloc 256;copy 0;copy 3;".
    static std::string Take() { return std::exchange(calls, ""); }
    static inline bool exhausted = false;

private:
    static void Note(const char* what, unsigned int count) {
        if (exhausted)
            throw std::bad_alloc();
        calls += what + (" " + std::to_string(count)) + ";";
    }
    static inline std::string calls;
};

#endif
