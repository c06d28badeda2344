// link: velmoraserver
// One job by the engine, as the server runs it, on a destination folder whose catalogues lie beside
// it in FOLDER.catalogues:
//   engine backup SOURCE FOLDER [COMPRESSOR [LEVEL]]
//   engine incremental SOURCE FOLDER [COMPRESSOR [LEVEL]]   on what `backup` made there
//   engine restore FOLDER TARGET [PATH]   the newest backup, or of it only /PATH
//   engine verify FOLDER
//   engine compare FOLDER SOURCE [ITEM...]   the newest backup with what is there
// Prints wall seconds, bytes on the destination, peak memory in MB, processor seconds.
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <span>

#include "server/engine/JobEnvironment.h"

namespace {

using namespace server;

class OneMount : public kit::MountSource {
public:
    explicit OneMount(std::string path) : fPath(std::move(path)) {}
    std::vector<Mount> Mounts() override {
        return {Mount{fPath, "/", "ext4", "/dev/source", 1, false}};
    }
    std::string Label(const Mount&) override { return "Source"; }
    bool IsRemovable(const Mount&) override { return false; }
    std::optional<Space> SpaceOf(const Mount&) override { return Space{}; }

private:
    std::string fPath;
};

// Counts what the server would keep.
class Events : public JobEvents {
public:
    void Line(core::LineType type, int32_t textId, KTReportLine arguments) override {
        ++lines;
        if (type != core::LineType::Error) return;
        char text[1024] = {};
        arguments.Get(text, sizeof(text) - 1, 0);
        std::fprintf(stderr, "error %d\n", textId);
    }
    void SetProgress(const Progress&) override {}
    int64_t lines = 0;
};

class Control : public JobControl {
public:
    bool MayGoOn() override { return true; }
    bool IsAborted() const override { return false; }
};

JobOrder BackupOrder(std::span<const std::string> words, const std::string& folder) {
    JobOrder order;
    order.id = 1;
    order.title = "Benchmark";
    BMessage selection, volume, packer;
    selection.Add("SELECTION", "INCLUDE /Source/*");
    volume.Add("path", folder);
    if (words.size() > 3) packer.Add("level", static_cast<int32_t>(std::stoi(words[3])));
    order.description.Add("selection", selection);
    order.description.Add("addon", "KTImage");
    order.description.Add("volume", volume);
    order.description.Add("bak_addonpacker", words.size() > 2 ? words[2] : "KTZstd");
    order.description.Add("bak_packer", packer);
    return order;
}

// What reads the newest backup, or of it only `path`; to `target` unless that is empty.
JobOrder ReadingOrder(core::JobType type, const std::string& backup, const std::string& path,
                      const std::string& target) {
    JobOrder order;
    order.id = 2;
    order.type = type;
    order.title = "Benchmark";
    const std::string record = "/" + backup + (path.empty() ? "/*" : "/Source/" + path);
    BMessage selection, settings;
    selection.Add("SELECTION", "INCLUDE " + record);
    if (!target.empty()) {
        selection.Add("source", "REDIREC " + record);
        selection.Add("redirect", target);
        settings.Add("divert", int32_t{1});
        settings.Add("createemptydirs", int32_t{1});
    }
    order.description.Add("selection", selection);
    order.description.Add("restore", settings);
    return order;
}

std::string Absolute(const std::string& path) {
    return std::filesystem::absolute(path);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + std::min(argc, 2), argv + argc);
    const std::string verb = argc > 1 ? argv[1] : "";
    const bool builds = verb == "incremental";
    const bool saves = verb == "backup" || builds;
    const bool restores = verb == "restore", compares = verb == "compare";
    if ((!saves && !restores && !compares && verb != "verify") ||
        words.size() < (verb == "verify" ? 1 : 2)) {
        std::fprintf(stderr,
                     "usage: engine backup SOURCE FOLDER [COMPRESSOR [LEVEL]]\n"
                     "       engine incremental SOURCE FOLDER [COMPRESSOR [LEVEL]]\n"
                     "       engine restore FOLDER TARGET [PATH]\n"
                     "       engine verify FOLDER\n"
                     "       engine compare FOLDER SOURCE [ITEM...]\n");
        return 2;
    }
    const std::string folder = Absolute(words[saves ? 1 : 0]);
    std::filesystem::create_directories(folder);
    if (restores) std::filesystem::create_directories(words[1]);
    CatalogueStore catalogues(folder + ".catalogues");
    if (!catalogues.Open()) return 1;
    EngineConfig config;
    config.addOnFolder = std::string(VELMORA_PROGRAM_DIR "/Backup_Server/add-ons");
    if (saves || compares) {
        config.roster = BVolumeRoster(std::make_shared<OneMount>(Absolute(words[saves ? 0 : 1])));
    }
    JobOrder order;
    if (saves) {
        order = BackupOrder(words, folder);
        if (builds) {
            order.type = core::JobType::Incremental;
            order.id = 2 + static_cast<int32_t>(catalogues.Backups().size());
            order.description.Remove("selection");
            order.description.Add("base_id", int32_t{1});
        }
    } else {
        const auto backups = catalogues.Backups();
        if (backups.empty()) return 1;
        const auto type = restores   ? core::JobType::Restore
                          : compares ? core::JobType::Compare
                                     : core::JobType::Verify;
        order =
            ReadingOrder(type, backups.front().name, restores && words.size() > 2 ? words[2] : "",
                         restores ? Absolute(words[1]) : "");
        BMessage items;
        for (size_t i = 2; compares && i < words.size(); ++i)
            items.Add(words[i].c_str(), int32_t{1});
        if (!items.IsEmpty()) order.description.Add("compare", items);
    }
    Events events;
    Control control;

    const auto start = std::chrono::steady_clock::now();
    const core::JobEnd end = RunJob(order, config, catalogues, events, control);
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (end != core::JobEnd::Good) return 1;

    uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) bytes += entry.file_size();
    }
    rusage use{};
    ::getrusage(RUSAGE_SELF, &use);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    std::printf("%.3f %ju %.1f %.3f\n", wall, bytes, static_cast<double>(use.ru_maxrss) / 1024,
                seconds(use.ru_utime) + seconds(use.ru_stime));
    return 0;
}
