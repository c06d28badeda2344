#include "server/engine/FoundBackup.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>

#include "server/archive/FileSource.h"
#include "server/archive/Format.h"
#include "server/archive/KeyFile.h"
#include "server/engine/AddOns.h"

namespace server {

using archive::Manifest;
using kit::Error;
using kit::ErrorKind;

namespace {

constexpr int64_t kMostManifest = int64_t{16} << 20;
constexpr size_t kLongestTitle = 1000;
constexpr int kMostLooseMedia = 100'000;

kit::Result<Bytes> ReadWhole(KTVolume& volume, const std::string& folder, const std::string& name,
                             int64_t most) {
    const auto file = archive::OpenOnVolume(volume, folder, name);
    const auto size = file->Size();
    if (!size) return size.error();
    if (*size > most) return Error::Make(ErrorKind::TooLarge, name);
    Bytes content(static_cast<size_t>(*size));
    const auto got = file->ReadAt(0, content);
    if (!got) return got.error();
    content.resize(*got);
    return content;
}

// A title is shown in lists and on terminals.
std::string PlainTitle(std::string_view title) {
    std::string plain(title.substr(0, kLongestTitle));
    std::ranges::replace_if(
        plain, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, ' ');
    return plain;
}

// Whether the media of all discs were copied into this one folder.
bool IsGathered(KTVolume& volume, const std::string& folder, const Manifest& manifest) {
    const auto files = volume.ListFiles(folder);
    if (!files) return false;
    std::set<std::string_view> names;
    for (const KTVolumeFile& file : *files)
        names.insert(file.name);
    return std::ranges::all_of(manifest.media, [&](const archive::ManifestMedium& medium) {
        return names.contains(medium.file);
    });
}

// The add-on whose files end so; "" for none.
std::string CompressorOf(const std::string& suffix, const std::string& addOnFolder) {
    std::error_code problem;
    for (const auto& entry :
         std::filesystem::directory_iterator(addOnFolder + "/compressors", problem)) {
        const std::string name = entry.path().filename();
        const auto compressor = LoadCompressor(addOnFolder, name);
        if (compressor && (*compressor)->Suffix() == suffix) return name;
    }
    return "";
}

}  // namespace

kit::Result<Manifest> ReadManifestOf(KTVolume& volume, const std::string& folder) {
    const auto json = ReadWhole(volume, folder, archive::kManifestFile, kMostManifest);
    if (!json) return json.error();
    auto manifest = archive::ReadManifest(*json);
    if (manifest && manifest->name != archive::BackupOfFolder(folder)) {
        return Error::Make(ErrorKind::Damaged, archive::kManifestFile, "of another backup");
    }
    return manifest;
}

kit::Result<Manifest> ManifestOfFiles(KTVolume& volume, const std::string& folder,
                                      const std::string& addOnFolder) {
    const auto backup = archive::BackupOfFolder(folder);
    const auto files = volume.ListFiles(folder);
    if (!files) return files.error();
    Manifest manifest;
    std::optional<std::string> suffix;
    for (const KTVolumeFile& file : *files) {
        const auto medium = archive::ParseMediumFile(file.name);
        if (!medium || medium->number > kMostLooseMedia) continue;
        if (!suffix) suffix = medium->suffix;
        if (medium->suffix != *suffix) continue;
        const auto number = static_cast<size_t>(medium->number);
        if (manifest.media.size() < number) manifest.media.resize(number);
        manifest.media[number - 1] = {file.name, file.size, ""};
    }
    if (!backup || !suffix) return Error::Make(ErrorKind::NotFound, folder, "there are no media");
    // One that is missing is found to be when it is read.
    for (size_t i = 0; i < manifest.media.size(); ++i) {
        if (manifest.media[i].file.empty())
            manifest.media[i].file = archive::MediumFile(static_cast<int>(i) + 1, *suffix);
    }
    manifest.isProtected = suffix->ends_with(archive::kSealedSuffix);
    if (manifest.isProtected) suffix->resize(suffix->size() - archive::kSealedSuffix.size());
    manifest.compressor = CompressorOf(*suffix, addOnFolder);
    manifest.name = *backup;
    manifest.title = *backup;
    manifest.start = archive::StartOfName(*backup);
    manifest.jobId = archive::JobOfName(*backup);
    return manifest;
}

kit::Result<BackupInfo> LookAt(KTVolume& volume, const std::string& folder,
                               const std::string& addOnFolder) {
    const auto name = archive::BackupOfFolder(folder);
    if (!name) return Error::Make(ErrorKind::NotFound, folder, "is no backup");
    if (archive::DiscOfFolder(folder) > 0)
        return Error::Make(ErrorKind::Unsupported, folder,
                           "one disc of a backup on several: its last disc is needed");
    BackupInfo info;
    info.name = *name;
    if (folder != info.name) info.folder = folder;
    auto manifest = ReadManifestOf(volume, folder);
    if (!manifest) {
        const ErrorKind kind = manifest.error().kind;
        if (kind != ErrorKind::NotFound && kind != ErrorKind::Damaged &&
            kind != ErrorKind::TooLarge) {
            return manifest.error();
        }
        info.isLoose = true;
        manifest = ManifestOfFiles(volume, folder, addOnFolder);
        if (!manifest) return manifest.error();
    }
    info.title = PlainTitle(manifest->title);
    info.type = manifest->type;
    info.jobId = manifest->jobId;
    info.baseId = manifest->baseId;
    info.builtOn = manifest->buildsOn;
    info.start = manifest->start;
    info.files = manifest->files;
    info.bytes = manifest->bytes;
    info.isProtected = manifest->isProtected;
    if (manifest->discs > 1 && !IsGathered(volume, folder, *manifest)) {
        info.isRemovable = true;
        info.manifest = archive::WriteManifest(*manifest);
    }
    if (info.isProtected) {
        // Without it nothing is ever opened; whoever wants to know finds it empty.
        auto key = ReadWhole(volume, folder, archive::kKeyFile, archive::kMostKeyFile);
        if (key) info.protection.keyFile = std::move(*key);
    }
    return info;
}

std::string TitleOfFound(const BackupInfo& found) {
    if (!found.folder.empty()) return found.title + " (ended unexpectedly)";
    if (found.isLoose) return found.title + " (its description cannot be read)";
    if (!found.manifest.empty()) return found.title + " (the last of several discs)";
    return found.title;
}

kit::Result<std::vector<std::string>> BackupFolders(KTVolume& volume) {
    auto folders = volume.ListBackups();
    if (!folders) return folders;
    std::erase_if(*folders, [](const auto& folder) { return !archive::BackupOfFolder(folder); });
    std::ranges::sort(*folders);
    return folders;
}

}  // namespace server
