// Finding by a part of the name in the catalogue of 1,000,000 entries, against a scan of the same
// catalogue in SQL; and what the index costs.

// link: velmoraserver

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "server/catalogue/CatalogueReader.h"
#include "server/catalogue/CatalogueWriter.h"
#include "server/catalogue/EntrySearch.h"

namespace {

using namespace server;
using Clock = std::chrono::steady_clock;

constexpr char kName[] = "20261122T201530-0000001a";
constexpr int32_t kFolders = 20'000, kFiles = 49;  // in each
constexpr int kTurns = 5;

CatalogueEntry Entry(uint32_t mode) {
    CatalogueEntry entry;
    entry.mode = mode;
    entry.frame = 0;
    return entry;
}

bool MakeCatalogue(CatalogueStore& store) {
    auto writer = CatalogueWriter::Create(store.PathForNew(kName), {{kName}, {}});
    if (!writer) return false;
    CatalogueWriter& w = **writer;
    char name[64];
    w.AddDirectory({kCatalogueRoot, w.AddEntry(Entry(S_IFDIR | 0755), "Volume"), 1, -1, 0});
    const int32_t first = w.NextId();
    for (int32_t i = 0; i < kFolders; ++i) {
        std::snprintf(name, sizeof(name), "project-%06d", i);
        w.AddEntry(Entry(S_IFDIR | 0755), name);
    }
    w.AddDirectory({1, first, kFolders, 0, 0});
    for (int32_t i = 0; i < kFolders; ++i) {
        w.AddDirectory({first + i, w.NextId(), kFiles, 0, 0});
        for (int32_t k = 0; k < kFiles; ++k) {
            std::snprintf(name, sizeof(name), "Module_%05d_part%02d.cpp", i * 7919 % 100'000, k);
            w.AddEntry(Entry(S_IFREG | 0644), name);
        }
    }
    w.AddFrame({0, 1, 0, 1, 1, 1});
    BackupInfo info;
    info.name = kName;
    return w.Finish() && store.Adopt(kName, info);
}

// The median of some turns, in milliseconds.
template <class Work>
double Time(const Work& work) {
    std::vector<double> times;
    for (int turn = 0; turn < kTurns; ++turn) {
        const auto start = Clock::now();
        work();
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

}  // namespace

int main() {
    char pattern[] = "bench-find-XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern);
    CatalogueStore store(folder.string());
    if (!store.Open() || !MakeCatalogue(store)) return 1;
    EntrySearch search(store, [](const std::string&, const kit::Error& error) {
        std::fprintf(stderr, "%s\n", error.Text().c_str());
    });
    const double build = Time([&] {
        std::filesystem::remove(store.NamesPathOf(kName));
        search.Prepare(kName);
    });
    std::printf("index of %d entries: %.0f ms, %.1f MB beside a catalogue of %.1f MB\n\n",
                kFolders * (kFiles + 1) + 1, build,
                static_cast<double>(std::filesystem::file_size(store.NamesPathOf(kName))) / 1e6,
                static_cast<double>(std::filesystem::file_size(store.PathOf(kName))) / 1e6);
    std::printf("%-18s %8s %10s %12s\n", "looked for", "found", "ours, ms", "SQL, ms");
    auto reader = CatalogueReader::Open(store.PathOf(kName));
    if (!reader) return 1;
    for (const char* text : {"nothing like it", "zz", "PROJECT-019999", "part48", "e"}) {
        int32_t found = 0;
        const double ours = Time([&] { found = search.Find(text, 100).Count("path"); });
        const double sql = Time([&] {
            Statement rows = reader->File().Prepare(
                "SELECT id FROM entries WHERE CAST(name AS TEXT) LIKE '%' || ?1 || '%' LIMIT 100");
            rows.Bind(1, std::string_view(text));
            while (rows.Next()) {
            }
        });
        std::printf("%-18s %8d %10.1f %12.1f\n", text, found, ours, sql);
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return 0;
}
