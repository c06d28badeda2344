// Catalogues as a server finds them at its start, made without a backup.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "server/archive/Format.h"
#include "server/catalogue/CatalogueStore.h"
#include "server/catalogue/CatalogueWriter.h"

namespace tests {

struct MadeBackup {
    int32_t job = 0;
    core::JobType type = core::JobType::Full;
    int32_t base = 0;
    std::string title;
    std::vector<std::string> files;         // in the folder "Data/folder", in byte order
    std::vector<std::string> builtOn = {};  // names, the oldest first

    std::string Name() const { return server::archive::BackupName(1795378530 + job, job); }
};

// Adds the backup to the catalogues below a server's data folder. Its data is nowhere.
inline std::string AddCatalogue(const std::string& dataFolder, const MadeBackup& backup) {
    std::filesystem::create_directories(dataFolder);
    server::CatalogueStore store(dataFolder + "/catalogues");
    EXPECT_TRUE(store.Open());
    server::BackupInfo info;
    info.name = backup.Name();
    info.title = backup.title.empty() ? "Backup " + std::to_string(backup.job) : backup.title;
    info.type = backup.type;
    info.jobId = backup.job;
    info.baseId = backup.base;
    info.start = 1795378530 + backup.job;
    info.addon = "KTImage";
    info.volumeSettings.Add("path", "/nowhere/at/all");

    std::vector<std::string> chain = backup.builtOn;
    chain.push_back(info.name);
    auto writer = server::CatalogueWriter::Create(store.PathForNew(info.name), {chain, {}});
    EXPECT_TRUE(writer);
    server::CatalogueWriter& w = **writer;
    server::CatalogueEntry directory;
    directory.mode = S_IFDIR | 0755;
    w.AddDirectory({server::kCatalogueRoot, w.AddEntry(directory, "Data"), 1, -1, 0});
    w.AddDirectory({1, w.AddEntry(directory, "folder"), 1, 0, 0});
    const int32_t first = w.NextId();
    for (const auto& name : backup.files) {
        server::CatalogueEntry entry;
        entry.mode = S_IFREG | 0644;
        entry.size = static_cast<int64_t>(name.size());
        entry.modified = 1'500'000'000'000'000'000;
        entry.frame = 0;
        w.AddEntry(entry, name);
    }
    w.AddDirectory({2, first, static_cast<int32_t>(backup.files.size()), 0, 512});
    w.AddFrame({0, 1, 0, 100, 4096, 1});
    EXPECT_TRUE(w.Finish());
    EXPECT_TRUE(store.Adopt(info.name, info));
    return info.name;
}

}  // namespace tests
