// link: velmoraserver
// One full backup by the engine, as the server runs it: engine_backup SOURCE TARGET [COMPRESSOR
// [LEVEL]]. The folder TARGET is made; catalogues go beside it. Prints wall seconds, bytes on the
// destination, peak memory in MB, processor seconds.
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

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

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: engine_backup SOURCE TARGET [COMPRESSOR [LEVEL]]\n");
        return 2;
    }
    const std::string source = std::filesystem::absolute(argv[1]);
    const std::string target = std::filesystem::absolute(argv[2]);
    std::filesystem::create_directories(target);
    CatalogueStore catalogues(target + ".catalogues");
    if (!catalogues.Open()) return 1;
    EngineConfig config;
    config.addOnFolder = std::string(VELMORA_PROGRAM_DIR "/Backup_Server/add-ons");
    config.roster = BVolumeRoster(std::make_shared<OneMount>(source));
    JobOrder order;
    order.id = 1;
    order.title = "Benchmark";
    BMessage selection, volume, packer;
    selection.Add("SELECTION", "INCLUDE /Source/*");
    volume.Add("path", target);
    if (argc > 4) packer.Add("level", static_cast<int32_t>(std::atoi(argv[4])));
    order.description.Add("selection", selection);
    order.description.Add("addon", "KTImage");
    order.description.Add("volume", volume);
    order.description.Add("bak_addonpacker", argc > 3 ? argv[3] : "KTZstd");
    order.description.Add("bak_packer", packer);
    Events events;
    Control control;

    const auto start = std::chrono::steady_clock::now();
    const core::JobEnd end = RunJob(order, config, catalogues, events, control);
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (end != core::JobEnd::Good) return 1;

    uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(target)) {
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
