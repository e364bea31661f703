// SPDX-License-Identifier: MIT
//
// order_loads WHAT TIMES PLUGIN LIBRARY: loads the plugin and the library that it needs, and
// unloads them, that many times and in turn. In the end nothing may be there that was not there
// after the first ten times: no descriptor, no thread, no mapping, no memory, no handler of a
// signal. WHAT is "all", and then the library stays from the first kill of a thread on, or
// "nokill".
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

namespace {

// With the address sanitizer, which looks for lost memory at the end, what is mapped says nothing,
// and a library that stays may have taken functions of a plugin for its own.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer);
#else
constexpr bool sanitized = false;
#endif

long Entries(const char* folder) {
    using Walk = std::filesystem::directory_iterator;
    return std::distance(Walk(folder), Walk());
}

struct Picture {
    long descriptors = Entries("/proc/self/fd");
    long threads = Entries("/proc/self/task");
    long mappings = 0;
    long handlers = 0;
    long bytes = static_cast<long>(mallinfo2().uordblks);

    Picture() {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);)
            ++mappings;
        for (int number = 1; number < NSIG; ++number) {
            struct sigaction action {};
            if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL)
                ++handlers;
        }
    }
    void Print(const char* when) const {
        std::printf("%s: %ld descriptors, %ld threads, %ld mappings, %ld handlers, %ld bytes\n",
                    when, descriptors, threads, mappings, handlers, bytes);
    }
};

void Fail(const char* path, const char* what) {
    std::fprintf(stderr, "order: %s: %s\n", path, what);
    _exit(1);
}

/// True if the library is gone afterwards. If it has a function UsePlugin, that is called.
bool LoadAndUnload(const char* path, bool alsoKill) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        Fail(path, dlerror());
    if (void* const use = dlsym(library, "UsePlugin"))
        reinterpret_cast<void (*)(bool)>(use)(alsoKill);
    dlclose(library);
    void* const still = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (still != nullptr)
        dlclose(still);
    return still == nullptr;
}

} // namespace

int main(int argc, char** argv) {
    constexpr int warm = 10;
    const bool alsoKill = argc > 1 && std::strcmp(argv[1], "all") == 0;
    const int times = argc == 5 ? std::atoi(argv[2]) : 0;
    mallopt(M_ARENA_MAX, 1); // or threads map more of them every now and then
    const Picture fresh;
    Picture before;
    for (int i = 0; i < times; ++i) {
        if (i == warm)
            before = Picture();
        // A thread that has told its end is on its way out, and its code stays until it is gone.
        for (int at = 3; at < argc; ++at)
            for (int tries = 0;
                 !LoadAndUnload(argv[at], alsoKill) && !(alsoKill && (at != 3 || sanitized));
                 usleep(1000))
                if (++tries == 1000)
                    Fail(argv[at], "stays loaded");
    }
    Picture after;
    for (int tries = 0; after.threads != fresh.threads && tries < 1000; ++tries) {
        usleep(1000);
        after = Picture();
    }
    std::printf("\n");
    fresh.Print("at first");
    before.Print("after 10");
    after.Print("at last ");
    // A stack of a thread more or less may wait for the next one, and some blocks of the C
    // library's own grow with the history of loads.
    const bool clean =
        after.descriptors == fresh.descriptors && after.threads == fresh.threads &&
        after.handlers == fresh.handlers + (alsoKill ? 1 : 0) &&
        (sanitized || (after.mappings <= before.mappings + 4 && after.bytes - before.bytes < 4096));
    return clean && times > warm ? 0 : 1;
}
