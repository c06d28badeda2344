#include "server/engine/BackupContent.h"

#include <xxhash.h>

#include "server/archive/AgeStream.h"
#include "server/archive/Format.h"

namespace server {

namespace {

constexpr int64_t kMostManifest = int64_t{16} << 20;
// A frame that did not get smaller still has its own format around it.
constexpr int64_t kMostPacked = static_cast<int64_t>(archive::kFrameSize) * 5 / 4;

kit::Error Damaged(const std::string& path, const char* detail) {
    return kit::Error::Make(kit::ErrorKind::Damaged, path, detail);
}

}  // namespace

kit::Result<std::unique_ptr<BackupContent>> BackupContent::Open(const BackupInfo& info,
                                                                const EngineConfig& config,
                                                                const BackupKeys& keys,
                                                                const VolumeHost& host) {
    std::unique_ptr<BackupContent> content(new BackupContent(host));
    auto volume = LoadDestination(config.addOnFolder, info.addon);
    if (!volume) return volume.error();
    content->fVolume.emplace(std::move(*volume));
    content->Volume().SetHost(&content->fHost);
    content->Volume().SetSettings(info.volumeSettings);
    content->fFolder = info.name;

    const auto file = content->File(archive::kManifestFile);
    const auto size = file->Size();
    if (!size) return size.error();
    if (*size > kMostManifest) return Damaged(archive::kManifestFile, "too large");
    Bytes json(static_cast<size_t>(*size));
    const auto got = file->ReadAt(0, json);
    if (!got) return got.error();
    auto manifest = archive::ReadManifest(std::span(json).first(*got));
    if (!manifest) return manifest.error();
    content->fManifest = std::move(*manifest);
    if (content->fManifest.name != info.name) {
        return Damaged(archive::kManifestFile, "of another backup");
    }
    // Whoever put plain media in the place of sealed ones is not to be believed.
    if (content->fManifest.isProtected != info.isProtected) {
        return Damaged(archive::kManifestFile, "protected, or not, as it should not be");
    }
    std::shared_ptr<const archive::AgeIdentity> key;
    if (info.isProtected) {
        const auto found = keys.find(info.name);
        if (found == keys.end()) {
            return kit::Error::Make(kit::ErrorKind::Denied, info.name, "protected by a password");
        }
        key = found->second;
    }

    auto compressor = LoadCompressor(config.addOnFolder, content->fManifest.compressor);
    if (!compressor) return compressor.error();
    content->fCompressor.emplace(std::move(*compressor));
    for (const archive::ManifestMedium& medium : content->fManifest.media)
        content->fMedia.push_back(key ? archive::OpenAge(content->File(medium.file), key)
                                      : content->File(medium.file));
    return content;
}

const BackupContent* BackupContent::Source(int32_t source) const {
    // Without its bases it is the only one there is.
    const size_t own = fManifest.buildsOn.size();
    const auto at = static_cast<size_t>(source);
    if (source < 0 || at > own) return nullptr;
    if (at == own) return this;
    return at < fBases.size() ? fBases[at].get() : nullptr;
}

std::unique_ptr<archive::FileSource> BackupContent::File(const std::string& name) const {
    return archive::OpenOnVolume(Volume(), fFolder, name);
}

archive::FileSource* BackupContent::Medium(int number) const {
    if (number < 1 || static_cast<size_t>(number) > fMedia.size()) return nullptr;
    return fMedia[static_cast<size_t>(number) - 1].get();
}

kit::Status BackupContent::ReadFrame(const CatalogueFrame& frame, KTCruncherContext& context,
                                     Bytes* packed, Bytes* content) const {
    archive::FileSource* medium = Medium(frame.medium);
    if (!medium || frame.offset < 0 || frame.size < 0 || frame.size > kMostPacked ||
        frame.content < 0 || frame.content > static_cast<int64_t>(archive::kFrameSize)) {
        return Damaged(fFolder, "the catalogue names a place that cannot be");
    }
    packed->resize(static_cast<size_t>(frame.size));
    const auto got = medium->ReadAt(frame.offset, *packed);
    if (!got) return got.error();
    if (*got != packed->size()) return Damaged(fFolder, "the medium ends too early");
    if (auto status = context.Decompress(*packed, static_cast<size_t>(frame.content), content);
        !status) {
        return status;
    }
    if (content->size() != static_cast<size_t>(frame.content) ||
        XXH3_64bits(content->data(), content->size()) != frame.hash) {
        return Damaged(fFolder, "wrong checksum");
    }
    return {};
}

}  // namespace server
