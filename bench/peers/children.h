// SPDX-License-Identifier: MIT
//
// How each contender launches a program and waits for it, and has a child through whose standard
// input and output bytes go: Send and CloseInput are for one thread, Receive and Wait for another.
// Receive gives the bytes that there are, none at the end; Wait gives the exit code.
#ifndef PLINTH_BENCH_PEERS_CHILDREN_H
#define PLINTH_BENCH_PEERS_CHILDREN_H

#include <execproc.h>
#include <pipestream.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string>

#include <Poco/Pipe.h>
#include <Poco/Process.h>
#include <apr_file_io.h>
#include <apr_pools.h>
#include <apr_thread_proc.h>
#include <boost/process.hpp>
#include <fcntl.h>
#include <gio/gio.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "contest.h"

namespace children {

inline constexpr const char* True = "/bin/true";
inline constexpr const char* Cat = "/bin/cat";

/// No child, or a broken pipe, is no result.
inline void Must(bool done, const char* contender) {
    if (!done) {
        std::cerr << "children: a failure of " << contender << '\n';
        std::abort();
    }
}

/// For a `write` that may take less than it is given.
template <typename Write>
void SendAll(const char* data, std::size_t size, const char* contender, Write write) {
    while (size != 0) {
        const auto sent = write(data, size);
        Must(sent > 0, contender);
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
}

class Ours {
public:
    static constexpr const char* Name = contest::Plinth;
    static int Launch() {
        ExecProcess child(True, 0);
        Must(child.Start(), Name);
        return static_cast<int>(child.WaitForProcess());
    }
    Ours() {
        Must(OpenPipeWithChildProc(&in, &out, &err, &child) == errOK, Name);
        DeletePipe(err); // not the child's
    }
    void Send(const char* data, std::size_t size) {
        Must(in->write(data, static_cast<std::streamsize>(size)).good(), Name);
    }
    void CloseInput() { DeletePipe(in); }
    std::size_t Receive(char* data, std::size_t size) {
        out->read(data, static_cast<std::streamsize>(size));
        return static_cast<std::size_t>(out->gcount());
    }
    int Wait() {
        DeletePipe(out);
        return static_cast<int>(child.WaitForProcess());
    }

private:
    ExecProcess child{Cat, 3};
    oPipeStream* in = nullptr;
    iPipeStream* out = nullptr;
    iPipeStream* err = nullptr;
};

/// Its pipes, not the streams for them: these move a kilobyte at a time.
class PocoChild {
public:
    static constexpr const char* Name = "POCO Process";
    static int Launch() { return Poco::Process::launch(True, {}).wait(); }
    void Send(const char* data, std::size_t size) {
        SendAll(data, size, Name, [&](const char* from, std::size_t left) {
            return in.writeBytes(from, static_cast<int>(left));
        });
    }
    void CloseInput() { in.close(); }
    std::size_t Receive(char* data, std::size_t size) {
        return static_cast<std::size_t>(out.readBytes(data, static_cast<int>(size)));
    }
    int Wait() { return child.wait(); }

private:
    Poco::Pipe in, out;
    Poco::ProcessHandle child = Poco::Process::launch(Cat, {}, &in, &out, nullptr);
};

/// Its pipes, not the streams for them, for the same reason.
class BoostChild {
public:
    static constexpr const char* Name = "boost::process";
    static int Launch() {
        boost::process::child child(True);
        child.wait();
        return child.exit_code();
    }
    void Send(const char* data, std::size_t size) {
        SendAll(data, size, Name, [&](const char* from, std::size_t left) {
            return in.write(from, static_cast<int>(left));
        });
    }
    void CloseInput() { in.close(); }
    std::size_t Receive(char* data, std::size_t size) {
        return static_cast<std::size_t>(out.read(data, static_cast<int>(size)));
    }
    int Wait() {
        child.wait();
        return child.exit_code();
    }

private:
    boost::process::pipe in, out;
    boost::process::child child{Cat, boost::process::std_in<in, boost::process::std_out> out};
};

class GioChild {
public:
    static constexpr const char* Name = "GSubprocess";
    static int Launch() {
        GSubprocess* const child =
            g_subprocess_new(G_SUBPROCESS_FLAGS_NONE, nullptr, True, nullptr);
        const int code = CodeOf(child);
        g_object_unref(child);
        return code;
    }
    GioChild() { Must(child != nullptr, Name); }
    GioChild(const GioChild&) = delete;
    GioChild& operator=(const GioChild&) = delete;
    ~GioChild() { g_object_unref(child); }
    void Send(const char* data, std::size_t size) {
        Must(g_output_stream_write_all(in, data, size, nullptr, nullptr, nullptr), Name);
    }
    void CloseInput() { Must(g_output_stream_close(in, nullptr, nullptr), Name); }
    std::size_t Receive(char* data, std::size_t size) {
        const gssize got = g_input_stream_read(out, data, size, nullptr, nullptr);
        Must(got >= 0, Name);
        return static_cast<std::size_t>(got);
    }
    int Wait() { return CodeOf(child); }

private:
    static int CodeOf(GSubprocess* child) {
        Must(child != nullptr && g_subprocess_wait(child, nullptr, nullptr), Name);
        return g_subprocess_get_exit_status(child);
    }

    GSubprocess* child =
        g_subprocess_new(static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_PIPE |
                                                       G_SUBPROCESS_FLAGS_STDOUT_PIPE),
                         nullptr, Cat, nullptr);
    GOutputStream* in = g_subprocess_get_stdin_pipe(child);
    GInputStream* out = g_subprocess_get_stdout_pipe(child);
};

class AprChild {
public:
    static constexpr const char* Name = "apr_proc_create";
    static int Launch() { return AprChild(True, APR_NO_PIPE).Wait(); }
    AprChild() : AprChild(Cat, APR_FULL_BLOCK) {}
    AprChild(const AprChild&) = delete;
    AprChild& operator=(const AprChild&) = delete;
    ~AprChild() { apr_pool_destroy(pool); }
    void Send(const char* data, std::size_t size) {
        Must(apr_file_write_full(child.in, data, size, nullptr) == APR_SUCCESS, Name);
    }
    void CloseInput() { apr_file_close(child.in); }
    std::size_t Receive(char* data, std::size_t size) {
        const apr_status_t status = apr_file_read(child.out, data, &size);
        Must(status == APR_SUCCESS || status == APR_EOF, Name);
        return status == APR_EOF ? 0 : size;
    }
    int Wait() {
        int code = -1;
        apr_proc_wait(&child, &code, nullptr, APR_WAIT);
        return code;
    }

private:
    AprChild(const char* program, apr_int32_t pipe) {
        apr_pool_create(&pool, nullptr);
        apr_procattr_t* how = nullptr;
        apr_procattr_create(&how, pool);
        apr_procattr_cmdtype_set(how, APR_PROGRAM_ENV);
        apr_procattr_io_set(how, pipe, pipe, APR_NO_PIPE);
        const std::array<const char*, 2> words = {program, nullptr};
        Must(apr_proc_create(&child, program, words.data(), nullptr, how, pool) == APR_SUCCESS,
             Name);
    }

    apr_pool_t* pool = nullptr;
    apr_proc_t child{};
};

class Bare {
public:
    static constexpr const char* Name = contest::SystemCalls;
    static int Launch() { return CodeOf(Spawn(True, nullptr)); }
    Bare() {
        Must(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0, Name);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        child = Spawn(Cat, &actions);
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
    }
    void Send(const char* data, std::size_t size) {
        SendAll(data, size, Name,
                [&](const char* from, std::size_t left) { return write(in[1], from, left); });
    }
    void CloseInput() { close(in[1]); }
    std::size_t Receive(char* data, std::size_t size) {
        const ssize_t got = read(out[0], data, size);
        Must(got >= 0, Name);
        return static_cast<std::size_t>(got);
    }
    int Wait() {
        close(out[0]);
        return CodeOf(child);
    }

private:
    static pid_t Spawn(const char* program, const posix_spawn_file_actions_t* actions) {
        std::string word = program;
        char* const words[] = {word.data(), nullptr};
        pid_t child = 0;
        Must(posix_spawn(&child, program, actions, nullptr, words, environ) == 0, Name);
        return child;
    }
    static int CodeOf(pid_t child) {
        int status = 0;
        Must(waitpid(child, &status, 0) == child && WIFEXITED(status), Name);
        return WEXITSTATUS(status);
    }

    int in[2], out[2];
    pid_t child = 0;
};

} // namespace children

#endif
