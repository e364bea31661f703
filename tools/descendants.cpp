// SPDX-License-Identifier: MIT
#include "descendants.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tools {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longestCommand = 100;

std::string FolderOf(int id) {
    return "/proc/" + std::to_string(id);
}

std::string Content(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf(); // of a process that ends meanwhile, nothing
    return content.str();
}

/// What the first line of a process says of it; nothing if it is gone.
std::optional<Process> Look(int id) {
    const std::string line = Content(FolderOf(id) + "/stat");
    // The name, in brackets, may hold anything, brackets and blanks too.
    const std::string::size_type behindName = line.rfind(')');
    if (behindName == std::string::npos)
        return {};
    std::istringstream fields(line.substr(behindName + 1));
    Process process;
    process.id = id;
    char state = '?';
    fields >> state >> process.parent;
    std::string skipped;
    for (int field = 5; field < 22; ++field)
        fields >> skipped;
    fields >> process.start;
    process.ended = state == 'Z' || state == 'X';
    return fields ? std::optional(process) : std::nullopt;
}

/// Calls `use` with the name of each entry of a folder, as long as it can be read.
template <typename Use>
void ForEachName(const std::string& folder, Use use) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error))
        use(entry->path().filename().string());
}

/// Appends what is below a process, in order. `all` is sorted by parent and id.
void AddBelow(int parent, int depth, const std::vector<Process>& all,
              const std::vector<Process>& without, std::vector<Process>& found) {
    auto child =
        std::lower_bound(all.begin(), all.end(), parent,
                         [](const Process& process, int id) { return process.parent < id; });
    for (; child != all.end() && child->parent == parent; ++child) {
        if (std::any_of(without.begin(), without.end(),
                        [&](const Process& other) { return child->Is(other); }))
            continue;
        found.push_back(*child);
        found.back().depth = depth;
        // Read one after the other, the lines may contradict each other; so no circle is followed.
        if (found.size() <= all.size())
            AddBelow(child->id, depth + 1, all, without, found);
    }
}

} // namespace

std::vector<Process> Descendants(const std::vector<Process>& without) {
    std::vector<Process> all;
    ForEachName("/proc", [&](const std::string& name) {
        int id = 0;
        const char* const end = name.data() + name.size();
        if (std::from_chars(name.data(), end, id).ptr != end)
            return;
        if (const std::optional<Process> process = Look(id))
            all.push_back(*process);
    });
    std::sort(all.begin(), all.end(), [](const Process& one, const Process& other) {
        return one.parent != other.parent ? one.parent < other.parent : one.id < other.id;
    });
    std::vector<Process> found;
    AddBelow(getpid(), 0, all, without, found);
    return found;
}

void Send(const Process& process, int signal) {
    const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, process.id, 0));
    if (descriptor == -1)
        return;
    // The descriptor is for whoever had the id at that moment. If that is still the right one:
    if (const std::optional<Process> now = Look(process.id); now && now->Is(process))
        syscall(SYS_pidfd_send_signal, descriptor, signal, nullptr, 0);
    close(descriptor);
}

std::string CommandOf(const Process& process) {
    std::string command = Content(FolderOf(process.id) + "/cmdline");
    while (!command.empty() && command.back() == '\0')
        command.pop_back();
    if (command.empty()) {
        command = Content(FolderOf(process.id) + "/comm");
        command = '[' + command.substr(0, command.find('\n')) + ']';
    }
    if (command.size() > longestCommand)
        command = command.substr(0, longestCommand) + "...";
    for (char& c : command)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7F')
            c = c == '\0' ? ' ' : '?';
    return command;
}

std::vector<std::string> OpenBy(const Process& process) {
    const std::string folder = FolderOf(process.id) + "/fd";
    std::vector<std::string> targets;
    ForEachName(folder, [&](const std::string& name) {
        std::error_code error;
        targets.push_back(fs::read_symlink(folder + "/" + name, error).string());
    });
    return targets;
}

std::string TargetOf(int descriptor) {
    std::error_code error;
    return fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error).string();
}

} // namespace tools
