// SPDX-License-Identifier: MIT
#include "files.h"

#include <pfudir.h>
#include <pfufs.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <Poco/DirectoryIterator.h>
#include <Poco/File.h>
#include <apr_file_info.h>
#include <apr_file_io.h>
#include <apr_general.h>
#include <apr_pools.h>
#include <boost/filesystem.hpp>
#include <gio/gio.h>

namespace peers {

namespace {

void Require(bool success) {
    if (!success)
        std::abort();
}

struct Ours {
    static Names Read(const char* path) {
        const std::unique_ptr<pfuDir> directory(pfuDir::OpenDir(path));
        Require(directory != nullptr);
        Names names;
        for (pfuDirEntry entry; directory->Read(entry);)
            names.Add(entry);
        return names;
    }
    static void Remove(const char* path) { Require(pfuFS::pfuRemoveDirRec(path) == errOK); }
    static void Copy(const char* from, const char* to) {
        Require(pfuFS::pfuCopyFile(from, to) == errOK);
    }
    static Facts Ask(const char* path) {
        const pfStat info{pfuDirPath(path)};
        Require(info.initialized());
        return {info.isDir(), info.fileSize(), info.modTime()};
    }
};

struct Standard {
    static Names Read(const char* path) {
        Names names;
        for (const auto& entry : std::filesystem::directory_iterator(path))
            names.Add(entry.path().filename().c_str());
        return names;
    }
    static void Remove(const char* path) { Require(std::filesystem::remove_all(path) > 0); }
    static void Copy(const char* from, const char* to) {
        Require(std::filesystem::copy_file(from, to));
    }
    static Facts Ask(const char* path) {
        const std::filesystem::directory_entry entry(path);
        const auto modified =
            std::chrono::file_clock::to_sys(entry.last_write_time()).time_since_epoch();
        return {entry.is_directory(), static_cast<long long>(entry.file_size()),
                std::chrono::floor<std::chrono::seconds>(modified).count()};
    }
};

struct Boost {
    static Names Read(const char* path) {
        Names names;
        for (const auto& entry : boost::filesystem::directory_iterator(path))
            names.Add(entry.path().filename().c_str());
        return names;
    }
    static void Remove(const char* path) { Require(boost::filesystem::remove_all(path) > 0); }
    static void Copy(const char* from, const char* to) {
        Require(boost::filesystem::copy_file(from, to));
    }
    static Facts Ask(const char* path) {
        return {boost::filesystem::is_directory(path),
                static_cast<long long>(boost::filesystem::file_size(path)),
                boost::filesystem::last_write_time(path)};
    }
};

struct PocoFile {
    static Names Read(const char* path) {
        Names names;
        const Poco::DirectoryIterator end;
        for (Poco::DirectoryIterator entry{std::string(path)}; entry != end; ++entry)
            names.Add(entry.name().c_str());
        return names;
    }
    static void Remove(const char* path) { Poco::File(path).remove(true); }
    static void Copy(const char* from, const char* to) { Poco::File(from).copyTo(to); }
    static Facts Ask(const char* path) {
        const Poco::File file(path);
        return {file.isDirectory(), static_cast<long long>(file.getSize()),
                file.getLastModified().epochTime()};
    }
};

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using File = std::unique_ptr<GFile, Unref>;

/// What GLib has for names alone.
struct Glib {
    static Names Read(const char* path) {
        const std::unique_ptr<GDir, decltype(&g_dir_close)> directory(g_dir_open(path, 0, nullptr),
                                                                      g_dir_close);
        Require(directory != nullptr);
        Names names;
        while (const char* const name = g_dir_read_name(directory.get()))
            names.Add(name);
        return names;
    }
};

struct Gio {
    static Names Read(const char* path) {
        const File file(g_file_new_for_path(path));
        const std::unique_ptr<GFileEnumerator, Unref> entries(
            g_file_enumerate_children(file.get(), G_FILE_ATTRIBUTE_STANDARD_NAME,
                                      G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr));
        Require(entries != nullptr);
        Names names;
        GFileInfo* info = nullptr;
        while (g_file_enumerator_iterate(entries.get(), &info, nullptr, nullptr, nullptr) &&
               info != nullptr)
            names.Add(g_file_info_get_name(info));
        return names;
    }
    static void Copy(const char* from, const char* to) {
        const File source(g_file_new_for_path(from)), target(g_file_new_for_path(to));
        Require(g_file_copy(source.get(), target.get(), G_FILE_COPY_NONE, nullptr, nullptr, nullptr,
                            nullptr));
    }
    static Facts Ask(const char* path) {
        const File file(g_file_new_for_path(path));
        const std::unique_ptr<GFileInfo, Unref> info(
            g_file_query_info(file.get(), "standard::type,standard::size,time::modified",
                              G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
        Require(info != nullptr);
        return {g_file_info_get_file_type(info.get()) == G_FILE_TYPE_DIRECTORY,
                g_file_info_get_size(info.get()),
                static_cast<long long>(
                    g_file_info_get_attribute_uint64(info.get(), G_FILE_ATTRIBUTE_TIME_MODIFIED))};
    }
};

/// A pool for each piece of work, inside a larger one, as its users have them.
class Pool {
public:
    Pool() { Require(apr_pool_create(&pool, nullptr) == APR_SUCCESS); }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() { apr_pool_destroy(pool); }
    operator apr_pool_t*() const { return pool; }

private:
    apr_pool_t* pool = nullptr;
};

struct Apr {
    static Names Read(const char* path) {
        const Pool pool;
        apr_dir_t* directory = nullptr;
        Require(apr_dir_open(&directory, path, pool) == APR_SUCCESS);
        Names names;
        apr_finfo_t info;
        while (apr_dir_read(&info, APR_FINFO_NAME, directory) == APR_SUCCESS)
            if (!IsSelfOrParent(info.name))
                names.Add(info.name);
        return names;
    }
    static void Copy(const char* from, const char* to) {
        const Pool pool;
        Require(apr_file_copy(from, to, APR_OS_DEFAULT, pool) == APR_SUCCESS);
    }
    static Facts Ask(const char* path) {
        const Pool pool;
        apr_finfo_t info;
        Require(apr_stat(&info, path, APR_FINFO_TYPE | APR_FINFO_SIZE | APR_FINFO_MTIME, pool) ==
                APR_SUCCESS);
        return {info.filetype == APR_DIR, info.size, apr_time_sec(info.mtime)};
    }
};

} // namespace

} // namespace peers

void Contestants() {
    using namespace peers;
    apr_initialize();
    Enter<Ours>(contest::Plinth);
    Enter<Standard>("std::filesystem");
    Enter<Boost>("boost::filesystem");
    Enter<PocoFile>("POCO File");
    Enter<Gio>("GIO");
    Enter<Glib>("GDir");
    Enter<Apr>("apr_file, apr_dir");
    Enter<Calls>(contest::SystemCalls);
}
