#include "tests/server/Trees.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <vector>

namespace server {

namespace {

std::string Attributes(const std::string& path) {
    char names[65536];
    const ssize_t size = ::llistxattr(path.c_str(), names, sizeof(names));
    std::vector<std::string> facts;
    for (const char* name = names; size > 0 && name < names + size; name += std::strlen(name) + 1) {
        char value[65536];
        const ssize_t got = ::lgetxattr(path.c_str(), name, value, sizeof(value));
        facts.push_back(std::string(name) + "=" +
                        std::string(value, static_cast<size_t>(std::max<ssize_t>(got, 0))));
    }
    std::sort(facts.begin(), facts.end());
    std::string all;
    for (const std::string& fact : facts)
        all.append(" [").append(fact).append("]");
    return all;
}

std::string ContentFacts(int parent, const char* name, const struct stat& info) {
    kit::UniqueFd fd(::openat(parent, name, O_RDONLY | O_CLOEXEC));
    if (!fd.IsOpen()) return " unreadable";
    // FNV-1a over the blocks that are not all zeros, and where they are: any digest will do, but
    // not one that the engine uses. Holes are jumped over.
    uint64_t hash = 14695981039346656037u;
    auto mix = [&hash](uint64_t value) { hash = (hash ^ value) * 1099511628211u; };
    std::vector<char> block(4096);
    const std::vector<char> zeros(4096);
    for (off_t at = 0; (at = ::lseek(fd.Get(), at, SEEK_DATA)) >= 0;) {
        at -= at % 4096;
        const ssize_t got = ::pread(fd.Get(), block.data(), block.size(), at);
        if (got <= 0) break;
        if (std::memcmp(block.data(), zeros.data(), static_cast<size_t>(got)) != 0) {
            mix(static_cast<uint64_t>(at));
            for (ssize_t i = 0; i < got; ++i)
                mix(static_cast<unsigned char>(block[static_cast<size_t>(i)]));
        }
        at += got;
    }
    const bool holes = info.st_size > 0 && ::lseek(fd.Get(), 0, SEEK_HOLE) < info.st_size;
    return " size " + std::to_string(info.st_size) + " content " + std::to_string(hash) +
           (holes ? " with holes" : "");
}

void Describe(int directory, const std::string& prefix, std::map<std::string, std::string>& facts,
              std::map<uint64_t, std::string>& links) {
    DIR* stream = ::fdopendir(::dup(directory));
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(stream);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        struct stat info;
        if (::fstatat(directory, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        const std::string path = prefix + "/" + name;
        const std::string through = "/proc/self/fd/" + std::to_string(directory) + "/" + name;
        std::string fact = "mode " + std::to_string(info.st_mode) + " owner " +
                           std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid) +
                           " modified " + std::to_string(info.st_mtim.tv_sec) + "." +
                           std::to_string(info.st_mtim.tv_nsec) + Attributes(through);
        if (S_ISREG(info.st_mode)) fact += ContentFacts(directory, name.c_str(), info);
        if (S_ISLNK(info.st_mode)) {
            std::string target(8192, '\0');
            target.resize(static_cast<size_t>(
                ::readlinkat(directory, name.c_str(), target.data(), target.size())));
            fact += " to " + target;
        }
        if (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode)) {
            fact += " device " + std::to_string(info.st_rdev);
        }
        if (!S_ISDIR(info.st_mode) && info.st_nlink > 1) {
            auto [first, isNew] = links.emplace(info.st_ino, path);
            fact += " is " + first->second;
        }
        facts[path] = fact;
        if (S_ISDIR(info.st_mode)) {
            kit::UniqueFd below(::openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY));
            Describe(below.Get(), path, facts, links);
        }
    }
}

void Attribute(const std::string& path, const char* name, std::string_view value) {
    ::lsetxattr(path.c_str(), name, value.data(), value.size(), 0);
}

}  // namespace

std::string Shell(const std::string& command) {
    std::string whole = "bash -c '";
    for (char c : command)
        whole += c == '\'' ? std::string("'\\''") : std::string(1, c);
    whole += "' 2>&1";
    FILE* pipe = ::popen(whole.c_str(), "r");
    std::string output;
    char buffer[4096];
    while (size_t got = std::fread(buffer, 1, sizeof(buffer), pipe))
        output.append(buffer, got);
    const int code = ::pclose(pipe);
    if (code != 0) output += "exit " + std::to_string(WEXITSTATUS(code));
    return output;
}

std::map<std::string, std::string> DescribeTree(const std::string& root) {
    std::map<std::string, std::string> facts;
    std::map<uint64_t, std::string> links;
    kit::UniqueFd fd(::open(root.c_str(), O_RDONLY | O_DIRECTORY));
    if (fd.IsOpen()) Describe(fd.Get(), "", facts, links);
    return facts;
}

std::string Differences(const std::map<std::string, std::string>& left,
                        const std::map<std::string, std::string>& right) {
    std::string found;
    for (const auto& [path, fact] : left) {
        auto other = right.find(path);
        if (other == right.end()) {
            found += "missing: " + path + "\n";
        } else if (other->second != fact) {
            found += "differs: " + path + "\n  " + fact + "\n  " + other->second + "\n";
        }
    }
    for (const auto& [path, fact] : right) {
        if (!left.contains(path)) found += "too many: " + path + "\n";
    }
    return found;
}

void WriteWhole(const std::string& path, std::string_view content) {
    std::ofstream out(path, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string ReadWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void Damage(const std::string& path, size_t at) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(static_cast<std::streamoff>(at));
    const int byte = file.get();
    if (byte < 0) throw std::runtime_error("nothing to damage in " + path);
    file.seekp(static_cast<std::streamoff>(at));
    file.put(static_cast<char>(byte ^ 0x55));
}

kit::UniqueFd MakeSocket(const std::string& path) {
    kit::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (::bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) fd.Reset();
    return fd;
}

std::string NoiseBytes(size_t size, uint64_t seed) {
    std::mt19937_64 random(seed);
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; i += 8) {
        const uint64_t value = random();
        std::memcpy(bytes.data() + i, &value, std::min<size_t>(8, size - i));
    }
    return bytes;
}

void MakeNastyTree(const std::string& root) {
    namespace fs = std::filesystem;
    fs::create_directories(root + "/docs/deep/deeper");
    fs::create_directory(root + "/empty directory");
    WriteWhole(root + "/empty", "");
    WriteWhole(root + "/docs/letter", std::string(1000, 'x'));
    for (size_t size : {1, 511, 512, 513, 1024}) {
        WriteWhole(root + "/docs/size " + std::to_string(size), NoiseBytes(size, size));
    }
    WriteWhole(root + "/big", NoiseBytes(9'000'001) + std::string(5'000'000, '\0'));
    WriteWhole(root + "/not utf-8 \xff\xfe", "bytes");
    WriteWhole(root + "/line\nfeed", "a newline in the name");
    WriteWhole(root + "/ leading blank and trailing ", "blanks");
    WriteWhole(root + "/-rf", "looks like an option");
    WriteWhole(root + "/\\back\\slash", "backslashes");
    WriteWhole(root +
                   "/Gr\xc3\xbc\xc3\x9f"
                   "e",
               "umlauts");
    const std::string longName(255, 'n');
    WriteWhole(root + "/" + longName, "a long name");
    fs::create_directory(root + "/" + std::string(255, 'd'));
    WriteWhole(root + "/" + std::string(255, 'd') + "/" + longName, "beyond 500 bytes");
    // Lengths around the fields of a tar header.
    for (size_t length : {91, 92, 93, 99, 100, 101, 154, 155, 156}) {
        WriteWhole(root + "/" + std::string(length, 'l'), std::to_string(length));
        fs::create_directory(root + "/" + std::string(length, 'm'));
        WriteWhole(root + "/" + std::string(length, 'm') + "/" + std::string(length, 'l'), "below");
    }

    auto holes = [&](const std::string& name, std::initializer_list<std::pair<off_t, int>> islands,
                     off_t size) {
        kit::UniqueFd fd(::open((root + "/" + name).c_str(), O_CREAT | O_WRONLY, 0644));
        for (auto [offset, length] : islands) {
            const std::string data = NoiseBytes(static_cast<size_t>(length));
            if (::pwrite(fd.Get(), data.data(), data.size(), offset) < 0) return;
        }
        (void)!::ftruncate(fd.Get(), size);
    };
    holes("only a hole", {}, 10'000'000);
    holes("hole, island, hole", {{20'000'000, 4096}}, 40'000'000);
    holes("data, hole, data", {{0, 100'000}, {30'000'000, 777}}, 30'000'777);
    holes("many islands", {{65536, 4096}, {131072, 4096}, {262144, 100}, {5'000'000'000, 4096}},
          5'000'100'000);
    holes("docs/" + std::string(200, 's'), {{1'000'000, 10}}, 2'000'000);

    fs::create_hard_link(root + "/big", root + "/docs/same as big");
    fs::create_hard_link(root + "/big", root + "/zz also big");
    fs::create_hard_link(root + "/empty", root + "/docs/" + std::string(200, 'h'));
    fs::create_symlink("nowhere/at all", root + "/dangling");
    fs::create_symlink(std::string(99, 't'), root + "/link 99");
    fs::create_symlink(std::string(100, 't'), root + "/link 100");
    fs::create_symlink(std::string(101, 't'), root + "/link 101");
    fs::create_symlink(std::string(4000, 't'), root + "/link 4000");
    fs::create_symlink("\xff\xfe" + std::string(200, 't'), root + "/link not utf-8");
    ::mkfifo((root + "/fifo").c_str(), 0640);

    Attribute(root + "/docs/letter", "user.note", std::string_view("binary \0 value", 14));
    Attribute(root + "/docs/letter", "user.empty", "");
    Attribute(root + "/docs/letter", "user.a=b%c", "odd name");
    Attribute(root + "/docs", "user.folder", std::string(2000, 'v'));
    Shell("setfacl -m u:1234:rw,g:4321:r,m::rw '" + root +
          "/docs/letter'; setfacl -d -m u:1234:rwx '" + root + "/docs/deep'; setfacl -m g:7:x '" +
          root + "/docs/deep'");
    if (::geteuid() == 0) {
        ::chown((root + "/docs/letter").c_str(), 1234, 4321);
        ::lchown((root + "/dangling").c_str(), 3'000'000, 4'000'000'000u);
        ::mknod((root + "/null").c_str(), S_IFCHR | 0666, makedev(1, 3));
        ::mknod((root + "/disk").c_str(), S_IFBLK | 0600, makedev(8, 300));
        Attribute(root + "/docs/letter", "trusted.note", "for root");
        Attribute(root + "/dangling", "trusted.onlink", "on a link");
        // cap_net_raw=ep
        const char capability[] = "\1\0\0\2\0\40\0\0\0\0\0\0\0\0\0\0\0\0\0\0";
        Attribute(root + "/docs/size 513", "security.capability", std::string_view(capability, 20));
    }
    ::chmod((root + "/docs/size 512").c_str(), 04755);
    ::chmod((root + "/empty directory").c_str(), 01777);

    auto stamp = [&](const std::string& name, time_t seconds, long nanoseconds) {
        const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ::utimensat(AT_FDCWD, (root + "/" + name).c_str(), times, AT_SYMLINK_NOFOLLOW);
    };
    stamp("docs/letter", 981173106, 789012345);
    stamp("docs/size 1", 0, 0);
    stamp("docs/size 511", -1, 500'000'000);
    stamp("docs/size 512", -86400, 1);
    stamp("docs/size 1024", 4'000'000'000, 120'000'000);
    stamp("dangling", 1'000'000'000, 1);
    stamp("fifo", 1'000'000'000, 10);
    stamp("docs/deep/deeper", 5, 5);
    stamp("docs/deep", 6, 6);
    stamp("docs", 7, 7);
    stamp("empty directory", 8, 0);
}

}  // namespace server
