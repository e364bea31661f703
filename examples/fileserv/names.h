// SPDX-License-Identifier: MIT
//
// Which names and paths may be spoken of. Both sides ask: the server about requests, the client
// about what a server that it need not trust calls its files.
#ifndef PLINTH_EXAMPLES_FILESERV_NAMES_H
#define PLINTH_EXAMPLES_FILESERV_NAMES_H

#include <cstring>
#include <cwctype>
#include <memory>
#include <sstream>
#include <string>

#include <errstatus.h>
#include <mbconv.h>
#include <pfupath.h>

#include <outside/varnholt/text.h>

namespace fileserv {

/// Names that begin like this are the service's own: its lock files, and files on their way.
inline constexpr char ownPrefix[] = ".fileserv";

struct ReleaseText {
    void operator()(void* text) const { operator delete(text); }
};

inline bool IsOwn(const char* name) {
    return std::strncmp(name, ownPrefix, sizeof ownPrefix - 1) == 0;
}

/// A path in native form, with `/` as its separator. Empty for one that is too long.
inline std::string Native(const std::string& path) {
    return std::string(pfuOSPath(path.c_str()));
}

/// Whether a name is text in the locale and free of separators of any form, so that it means one
/// and the same file wherever it travels. There are files whose names are not like that.
inline bool CanTravel(const char* name) {
    const std::unique_ptr<char, ReleaseText> neutral(mbxNativeToNeut(name));
    return neutral != nullptr && std::strchr(name, '/') == nullptr &&
           std::strcmp(pfuOSPath(name), name) == 0;
}

inline bool IsName(const char* name) {
    return *name != '\0' && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
           !IsOwn(name) && CanTravel(name);
}

/// errOK for a path that stays below the folder that it starts in, on its face: relative, without
/// empty components and ones that lead up or are the service's own. The empty path is the folder.
/// Separators may be of any form.
inline errstatus CheckPath(const std::string& path) {
    if (path.size() >= pfuPathSize)
        return errNameTooLong;
    if (pfuIsStringPathAbsolute(path.c_str()))
        return errNoAccess;
    if (path.empty())
        return errOK;
    // Cut from the native form: there a separator is never a part of a character.
    std::istringstream components(Native(path) + '/');
    for (std::string name; std::getline(components, name, '/');)
        if (!IsName(name.c_str()))
            return name == ".." || IsOwn(name.c_str()) ? errNoAccess : errInvalid;
    return errOK;
}

/// `folder` with a name in it, or an empty text if that is more than a path can hold.
inline std::string Join(const std::string& folder, char separator, const std::string& name) {
    const std::string path = folder.empty() ? name : folder + separator + name;
    return path.size() < pfuPathSize ? path : std::string();
}

/// Whether a name matches a pattern, as in the reading of a folder.
inline bool Matches(const std::string& name, const std::string& pattern) {
    const std::unique_ptr<wchar_t, ReleaseText> wideName(XStrnew(name.c_str()));
    const std::unique_ptr<wchar_t, ReleaseText> widePattern(XStrnew(pattern.c_str()));
    return Strmatch(wideName.get(), widePattern.get());
}

/// A name for the eyes and for messages: in quotes, in plain characters.
inline std::string Quoted(const char* name) {
    std::ostringstream quoted;
    NativeStringToCStyle(name, quoted);
    return quoted.str();
}

/// A name as it is, unless it would play tricks with a terminal.
inline std::string Shown(const std::string& name) {
    const std::unique_ptr<wchar_t, ReleaseText> wide(XStrnew(name.c_str()));
    for (const wchar_t* character = wide.get(); *character != L'\0'; ++character)
        if (std::iswcntrl(static_cast<std::wint_t>(*character)) != 0)
            return Quoted(name.c_str());
    return name;
}

} // namespace fileserv

#endif
