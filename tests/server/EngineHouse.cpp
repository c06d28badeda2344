#include "tests/server/EngineHouse.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
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

#include "core/locale/TextTable.h"
#include "kit/support/UniqueFd.h"
#include "server/engine/AddOns.h"
#include "server/engine/BackupJob.h"
#include "server/engine/JobReport.h"

namespace server {

namespace {

// The source is the only volume there is.
class OneMount : public kit::MountSource {
public:
    explicit OneMount(std::string path) : fPath(std::move(path)) {}
    std::vector<Mount> Mounts() override {
        Mount mount;
        mount.mountPoint = fPath;
        mount.root = "/";
        mount.fileSystem = "ext4";
        mount.source = "/dev/source";
        mount.device = 1;
        return {mount};
    }
    std::string Label(const Mount&) override { return "Source"; }
    bool IsRemovable(const Mount&) override { return false; }
    std::optional<Space> SpaceOf(const Mount&) override { return Space{}; }

private:
    std::string fPath;
};

}  // namespace

// --- Recorder -----------------------------------------------------------------------------------

void Recorder::Line(core::LineType type, int32_t textId, KTReportLine arguments) {
    const char* format = core::kTextTable.at(static_cast<size_t>(textId));
    const Said said{type, textId, arguments.Render(format, 20'000)};
    {
        const std::lock_guard lock(fMutex);
        lines.push_back(said);
    }
    if (onLine) onLine(said);
}

void Recorder::SetProgress(const Progress& told) {
    progress.push_back(told);
    if (onProgress) onProgress(told);
}

bool Recorder::Has(core::LineType type, int32_t textId) const {
    const std::lock_guard lock(fMutex);
    return std::any_of(lines.begin(), lines.end(),
                       [&](const Said& s) { return s.type == type && s.textId == textId; });
}

bool Recorder::HasText(core::LineType type, const std::string& part) const {
    const std::lock_guard lock(fMutex);
    return std::any_of(lines.begin(), lines.end(), [&](const Said& s) {
        return s.type == type && s.text.find(part) != std::string::npos;
    });
}

std::vector<std::string> Recorder::Texts(core::LineType type) const {
    std::vector<std::string> texts;
    for (const Said& said : lines) {
        if (said.type == type) texts.push_back(said.text);
    }
    return texts;
}

std::string Recorder::All() const {
    std::string all;
    for (const Said& said : lines) {
        all += std::to_string(static_cast<int>(said.type)) + ": " + said.text + "\n";
    }
    return all;
}

// --- EngineHouse --------------------------------------------------------------------------------

EngineHouse::EngineHouse() {
    std::string name = std::filesystem::temp_directory_path() / "velmora-engine-XXXXXX";
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    root = name;
    source = root + "/source";
    target = root + "/target";
    std::filesystem::create_directories(source);
    std::filesystem::create_directories(target);
    catalogues = std::make_unique<CatalogueStore>(root + "/catalogues");
    if (!catalogues->Open()) throw std::runtime_error("no catalogues");
    config.addOnFolder = VELMORA_ADDONS;
    config.roster = BVolumeRoster(std::make_shared<OneMount>(source));
    volume.Add("path", target);
}

EngineHouse::~EngineHouse() {
    Shell("rm -rf " + root);
}

JobOrder EngineHouse::Order(const std::vector<std::string>& rules) const {
    JobOrder order;
    order.id = fNextJob;
    order.title = "A test";
    BMessage selection;
    for (const std::string& rule : rules)
        selection.Add("SELECTION", rule);
    order.description.Add("selection", selection);
    order.description.Add("addon", "KTImage");
    order.description.Add("volume", volume);
    order.description.Add("bak_addonpacker", packer);
    return order;
}

std::string EngineHouse::Ending() const {
    return packer == "KTZstd" ? ".zst" : packer == "KTLz4" ? ".lz4" : packer == "KTXz" ? ".xz" : "";
}

std::string EngineHouse::Unpacker() const {
    return packer == "KTZstd"  ? "zstd -dc"
           : packer == "KTLz4" ? "lz4 -dc"
           : packer == "KTXz"  ? "xz -dc"
                               : "cat";
}

core::JobEnd EngineHouse::Run(const JobOrder& order) {
    ++fNextJob;
    return RunJob(order, config, *catalogues, events, control);
}

core::JobEnd EngineHouse::RunTo(KTVolume& to, const JobOrder& order) {
    ++fNextJob;
    JobReport report(events);
    auto compressor = LoadCompressor(config.addOnFolder, packer);
    std::unique_ptr<BaseBackup> base;
    if (order.type != core::JobType::Full) {
        const auto set = order.description.Get<int32_t>("base_id", 0);
        base = std::move(*BaseBackup::Find(*catalogues, set, order.type));
    }
    return BackupJob(order, config, *catalogues, report, control, to, **compressor, std::move(base))
        .Run();
}

std::vector<std::string> EngineHouse::Folders() const {
    std::vector<std::string> folders;
    for (const auto& entry : std::filesystem::directory_iterator(target)) {
        if (entry.is_directory()) folders.push_back(entry.path().filename());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

void EngineHouse::Forget(const std::string& folder) {
    auto removal = catalogues->BeginRemoval(folder);
    if (!removal || !removal->Finish()) throw std::runtime_error("cannot forget " + folder);
}

std::string EngineHouse::Unpack(const std::string& folder) {
    const std::string into = root + "/unpacked" + std::to_string(++fUnpacked);
    std::filesystem::create_directories(into);
    const std::string failed = Shell("cd " + target + "/" + folder +
                                     " && set -o pipefail && sha256sum --quiet -c SHA256SUMS"
                                     " && cat $(ls -v 0*.tar*) | " +
                                     Unpacker() +
                                     " | tar -xpf - --warning=no-timestamp --numeric-owner --acls "
                                     "--xattrs --xattrs-include='*' -C " +
                                     into);
    if (failed.empty()) return into;
    std::fprintf(stderr, "%s\n", failed.c_str());
    return "";
}

std::string EngineHouse::Shell(const std::string& command) {
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

// --- FaultyVolume -------------------------------------------------------------------------------

namespace {

class FaultyWriter : public KTVolumeWriter {
public:
    FaultyWriter(std::unique_ptr<KTVolumeWriter> writer, FaultyVolume& volume, std::string file)
        : fWriter(std::move(writer)), fVolume(volume), fFile(std::move(file)) {}
    kit::Status Write(std::span<const uint8_t> data) override {
        if (fVolume.Fails("Write:" + fFile)) return fVolume.Failure();
        // As a real one does, it takes what still fits before it says that it is full.
        const auto size = static_cast<int64_t>(data.size());
        const int64_t fits = std::min(size, fVolume.room);
        fVolume.room -= fits;
        fSize += fits;
        if (auto status = fWriter->Write(data.first(static_cast<size_t>(fits))); !status) {
            return status;
        }
        if (fits < size) return fVolume.Failure();
        return {};
    }
    kit::Status Truncate(int64_t size) override {
        fVolume.room += fSize - size;
        fSize = size;
        return fWriter->Truncate(size);
    }
    kit::Status Finish() override {
        if (fVolume.Fails("Finish:" + fFile)) return fVolume.Failure();
        return fWriter->Finish();
    }

private:
    std::unique_ptr<KTVolumeWriter> fWriter;
    FaultyVolume& fVolume;
    std::string fFile;
    int64_t fSize = 0;
};

}  // namespace

kit::Status FaultyVolume::CheckAccess() {
    if (Fails("CheckAccess")) return Failure();
    return fVolume.CheckAccess();
}

kit::Result<KTVolumeSpace> FaultyVolume::Space() {
    if (onSpace) onSpace();
    KTVolumeSpace space;
    space.capacity = 1 << 30;
    space.freeBytes = room;
    space.removable = removable;
    return space;
}

kit::Status FaultyVolume::BeginBackup(const std::string& name) {
    if (Fails("Begin")) return Failure();
    return fVolume.BeginBackup(name);
}

kit::Result<std::unique_ptr<KTVolumeWriter>> FaultyVolume::CreateFile(const std::string& name,
                                                                      const std::string& file) {
    if (Fails("Create:" + file)) return Failure();
    auto writer = fVolume.CreateFile(name, file);
    if (!writer) return writer.error();
    return std::unique_ptr<KTVolumeWriter>(new FaultyWriter(std::move(*writer), *this, file));
}

kit::Status FaultyVolume::Publish(const std::string& name) {
    if (Fails("Publish")) return Failure();
    return fVolume.Publish(name);
}

kit::Status FaultyVolume::WriteRootFile(const std::string& file, std::span<const uint8_t> data) {
    if (Fails("Root:" + file)) return Failure();
    return fVolume.WriteRootFile(file, data);
}

// --- trees --------------------------------------------------------------------------------------

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
        all += " [" + fact + "]";
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
    EngineHouse::Shell("setfacl -m u:1234:rw,g:4321:r,m::rw '" + root +
                       "/docs/letter'; setfacl -d -m u:1234:rwx '" + root +
                       "/docs/deep'; setfacl -m g:7:x '" + root + "/docs/deep'");
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
