// SPDX-License-Identifier: MIT
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include <cmdargxp.h>
#include <mbconv.h>
#include <zelprof.h>

#include "costs.h"

namespace {

using namespace costs;

void ToNeutral() {
    const std::string text(100, 'x');
    Count([&] { ::operator delete(mbxNativeToNeut(text.c_str())); });
}

void ToNative() {
    const std::string text(100, 'x');
    Count([&] { ::operator delete(mbxNeutToNative(text.c_str())); });
}

void Quote() {
    std::ostringstream out;
    Count([&] { out.seekp(0); }, [&] { NativeStringToCStyle("a \"text\"\n of some length", out); });
}

void Unquote() {
    std::ostringstream out;
    Count([&] { out.seekp(0); }, [&] { CStyleStringToNative("\"a\\ttext\\n\"", false, out); });
}

void ExpandArguments() {
    std::ofstream("arguments") << "one\ntwo\nthree\n";
    char program[] = "program", option[] = "-argfile", file[] = "arguments";
    int argc;
    char** argv;
    Count([&] {
        char* words[] = {program, option, file, nullptr};
        argc = 3;
        argv = words;
        ExpandCommandArguments(argc, argv, false);
        Require(argc == 4);
        FreeCommandArguments(argc, argv);
    });
}

void Profile() {
    std::cout.setstate(std::ios::badbit); // it prints its line in the end
    ProfileEntry entry("work");
    Count([&] { const ProfilePoint point(&entry); });
}

const Row rows[] = {
    {"100 bytes of text made neutral", ToNeutral},
    {"100 bytes of text made native", ToNative},
    {"a text quoted", Quote},
    {"a text unquoted", Unquote},
    {"an argument file of three lines expanded", ExpandArguments},
    {"a ProfilePoint made and ended", Profile},
};

} // namespace

const Family costs::text{"Text and program start", rows};
