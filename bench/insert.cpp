// Bringing backups back into the catalogue by their own catalogue: a folder of 100,000 entries and
// one of 1,000,000, as they lie on a disk, with all that the server does to take them over.
// bench_insert [entries...]
//
// link: velmoraserver

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "addons/KTZstd/ZstdContext.h"
#include "server/archive/BackupWriter.h"
#include "server/archive/Format.h"
#include "server/archive/Manifest.h"
#include "server/catalogue/CatalogueWriter.h"
#include "server/engine/JobEnvironment.h"

namespace {

using namespace server;
using Clock = std::chrono::steady_clock;

constexpr char kName[] = "20261122T201530-0000001a";
constexpr int kTurns = 3;
constexpr int32_t kFiles = 49;  // in each folder

class Quiet : public JobEvents, public JobControl {
public:
    void Line(core::LineType type, int32_t textId, KTReportLine) override {
        if (type == core::LineType::Error) std::fprintf(stderr, "error: text %d\n", textId);
    }
    void SetProgress(const Progress&) override {}
    bool MayGoOn() override { return true; }
    bool IsAborted() const override { return false; }
};

Bytes ContentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void Write(const std::string& path, const Bytes& content) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
}

bool MakeCatalogue(const std::string& path, int32_t entries) {
    auto writer = CatalogueWriter::Create(path, {{kName}, {"INCLUDE /Volume/*"}});
    if (!writer) return false;
    CatalogueWriter& w = **writer;
    CatalogueEntry folder, file;
    folder.mode = S_IFDIR | 0755;
    file.mode = S_IFREG | 0644;
    file.frame = 0;
    file.size = 1000;
    file.modified = file.changed = 1'750'000'000'123'456'789;
    w.AddDirectory({kCatalogueRoot, w.AddEntry(folder, "Volume"), 1, -1, 0});
    const int32_t folders = entries / (kFiles + 1);
    const int32_t first = w.NextId();
    char name[64];
    for (int32_t i = 0; i < folders; ++i) {
        std::snprintf(name, sizeof(name), "project-%06d", i);
        w.AddEntry(folder, name);
    }
    w.AddDirectory({1, first, folders, 0, 0});
    for (int32_t i = 0; i < folders; ++i) {
        w.AddDirectory({first + i, w.NextId(), kFiles, 0, 0});
        for (int32_t k = 0; k < kFiles; ++k) {
            std::snprintf(name, sizeof(name), "Module_%05d_part%02d.cpp", i * 7919 % 100'000, k);
            w.AddEntry(file, name);
        }
    }
    w.AddFrame({0, 1, 0, 1, 1, 1});
    return w.Finish().ok();
}

// A backup's folder as it lies on a destination; its media are not looked at.
bool MakeBackup(const std::string& folder, int32_t entries) {
    std::filesystem::create_directories(folder);
    const std::string plain = folder + ".db";
    if (!MakeCatalogue(plain, entries)) return false;
    const Bytes rows = ContentOf(plain);
    std::filesystem::remove(plain);
    ZstdContext zstd(3);
    Bytes catalogue, frame;
    for (size_t at = 0; at < rows.size(); at += archive::kFrameSize) {
        const size_t size = std::min(archive::kFrameSize, rows.size() - at);
        if (!zstd.Compress(std::span(rows).subspan(at, size), &frame)) return false;
        catalogue.insert(catalogue.end(), frame.begin(), frame.end());
    }
    Write(folder + "/" + archive::kCatalogueFile, catalogue);
    archive::Sha256 sha;
    sha.Update(catalogue);
    std::ofstream(folder + "/" + archive::kSumsFile)
        << sha.Finish() << "  " << archive::kCatalogueFile << "\n";
    archive::Manifest manifest;
    manifest.name = kName;
    manifest.jobId = 26;
    manifest.compressor = "KTZstd";
    manifest.media = {{"0001.tar.zst", 1, std::string(64, '0')}};
    Write(folder + "/" + archive::kManifestFile, archive::WriteManifest(manifest));
    return true;
}

// Seconds of one insert into an empty catalogue; below 0 when it failed.
double Insert(const std::string& root) {
    const std::string catalogues = root + "/catalogues";
    std::filesystem::remove_all(catalogues);
    CatalogueStore store(catalogues);
    if (!store.Open()) return -1;
    EngineConfig config;
    config.addOnFolder = VELMORA_PROGRAM_DIR "/Backup_Server/add-ons";
    JobOrder order;
    order.type = core::JobType::Insert;
    order.number = [](int32_t wanted) { return wanted; };
    BMessage volume;
    volume.Add("path", root);
    order.description.Add("addon", "KTImage");
    order.description.Add("volume", volume);
    order.description.Add("ID", kName);
    Quiet quiet;
    const auto start = Clock::now();
    const auto end = RunJob(order, config, store, quiet, quiet);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return end == core::JobEnd::Good && store.Find(kName) ? seconds : -1;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<int32_t> sizes;
    for (int i = 1; i < argc; ++i)
        sizes.push_back(std::max(100, std::atoi(argv[i])));
    if (sizes.empty()) sizes = {100'000, 1'000'000};
    std::printf("%12s %12s %12s\n", "entries", "catalogue MB", "insert, s");
    for (const int32_t entries : sizes) {
        char pattern[] = "bench-insert-XXXXXX";
        const std::string root = std::filesystem::absolute(::mkdtemp(pattern));
        const std::string folder = root + "/" + kName;
        if (!MakeBackup(folder, entries)) return 1;
        std::vector<double> times;
        for (int turn = 0; turn < kTurns; ++turn)
            times.push_back(Insert(root));
        std::ranges::sort(times);
        std::printf("%12d %12.1f %12.2f\n", entries,
                    static_cast<double>(
                        std::filesystem::file_size(folder + "/" + archive::kCatalogueFile)) /
                        1e6,
                    times[times.size() / 2]);
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
        if (times.front() < 0) return 1;
    }
    return 0;
}
