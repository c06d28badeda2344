#include "server/engine/BackupContent.h"

#include <xxhash.h>

#include <algorithm>
#include <functional>

#include "core/protocol/Texts.h"
#include "server/archive/AgeStream.h"
#include "server/archive/Format.h"
#include "server/engine/LookAgain.h"

namespace server {

namespace {

constexpr int64_t kMostManifest = int64_t{16} << 20;
// A frame that did not get smaller still has its own format around it.
constexpr int64_t kMostPacked = static_cast<int64_t>(archive::kFrameSize) * 5 / 4;

kit::Error Damaged(const std::string& path, const char* detail) {
    return kit::Error::Make(kit::ErrorKind::Damaged, path, detail);
}

}  // namespace

// A file on a disc that may not be in: what cannot be read is read again when it is.
class BackupContent::DiscFile : public archive::FileSource {
public:
    DiscFile(const BackupContent& content, int disc, const std::string& name)
        : fContent(content),
          fDisc(disc),
          fFile(archive::OpenOnVolume(content.Volume(), content.FolderOf(disc), name)) {}

    kit::Result<int64_t> Size() override {
        return WithDisc<int64_t>([this] { return fFile->Size(); });
    }
    kit::Result<size_t> ReadAt(int64_t offset, std::span<uint8_t> into) override {
        return WithDisc<size_t>([&] { return fFile->ReadAt(offset, into); });
    }

private:
    template <class T>
    kit::Result<T> WithDisc(const std::function<kit::Result<T>()>& call) {
        for (bool isThere = false;;) {
            auto result = call();
            // What the disc has and cannot be read is damaged.
            if (result || isThere) return result;
            isThere = fContent.HasDisc(fDisc);
            if (isThere) continue;
            if (auto status = fContent.Load(fDisc); !status) return status.error();
        }
    }

    const BackupContent& fContent;
    const int fDisc;
    const std::unique_ptr<archive::FileSource> fFile;
};

BackupContent::BackupContent(const BackupInfo& info, const EngineConfig& config, JobReport& report,
                             JobControl& control)
    : fReport(report),
      fControl(control),
      fLookAgain(config.lookAgain),
      fShown(info.title + " (" + info.name + ")"),
      fCanBeAway(info.isRemovable),
      fHost(report, control),
      fFolder(info.name) {}

kit::Result<std::unique_ptr<BackupContent>> BackupContent::Open(const BackupInfo& info,
                                                                const EngineConfig& config,
                                                                const BackupKeys& keys,
                                                                JobReport& report,
                                                                JobControl& control) {
    std::unique_ptr<BackupContent> content(new BackupContent(info, config, report, control));
    auto volume = LoadDestination(config.addOnFolder, info.addon);
    if (!volume) return volume.error();
    content->fVolume.emplace(std::move(*volume));
    content->Volume().SetHost(&content->fHost);
    content->Volume().SetSettings(info.volumeSettings);
    if (auto status = content->ReadItsManifest(info); !status) return status.error();
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

kit::Status BackupContent::ReadItsManifest(const BackupInfo& info) {
    Bytes json = info.manifest;
    // The manifest of a backup on several discs is known here, so that none is put in for it alone.
    if (json.empty()) {
        const auto file = File(archive::kManifestFile);
        const auto size = file->Size();
        if (!size) return size.error();
        if (*size > kMostManifest) return Damaged(archive::kManifestFile, "too large");
        json.resize(static_cast<size_t>(*size));
        const auto got = file->ReadAt(0, json);
        if (!got) return got.error();
        json.resize(*got);
    }
    auto manifest = archive::ReadManifest(json);
    if (!manifest) return manifest.error();
    fManifest = std::move(*manifest);
    return {};
}

// --- discs --------------------------------------------------------------------------------------

std::string BackupContent::FolderOf(int disc) const {
    return disc == Discs() ? fFolder : archive::PartFolder(fFolder, disc);
}

// What it is known by: it has the folder, with the media that it is to hold in their sizes.
bool BackupContent::HasDisc(int disc) const {
    const auto files = Volume().ListFiles(FolderOf(disc));
    if (!files) return false;
    return std::ranges::all_of(fManifest.media, [&](const archive::ManifestMedium& medium) {
        return medium.disc != disc || std::ranges::any_of(*files, [&](const KTVolumeFile& file) {
                   return file.name == medium.file && file.size == medium.size;
               });
    });
}

kit::Status BackupContent::Load(int disc) const {
    const std::lock_guard lock(fLoading);
    if (HasDisc(disc)) return {};
    if (!fCanBeAway) return kit::Error::Make(kit::ErrorKind::NotFound, FolderOf(disc), "not there");
    const auto tell = [&](int32_t textId) {
        KTReportLine line;
        line.AddString(fShown);
        line.AddInt32(disc);
        fReport.Line(core::LineType::Heading, textId, std::move(line));
    };
    // What is asked for comes last: it is what the panel shows.
    fReport.Words(core::LineType::Detail,
                  "It has the folder '" + FolderOf(disc) + "'. Drive: " + Volume().MediaName());
    tell(core::text::kInsertMedium);
    const auto listed = [this] {
        auto folders = Volume().ListBackups();
        return folders ? std::move(*folders) : std::vector<std::string>();
    };
    auto seen = listed();
    const bool found = LookAgainUntil(fControl, fLookAgain, [&] {
        if (HasDisc(disc)) return true;
        auto now = listed();
        if (now != seen && !now.empty()) {
            fReport.Words(core::LineType::Heading, "This is not the medium that is asked for.");
            tell(core::text::kInsertMedium);
        }
        seen = std::move(now);
        return false;
    });
    if (!found) return kit::Error::Make(kit::ErrorKind::Aborted, FolderOf(disc));
    tell(core::text::kMediumLoaded);
    return {};
}

std::pair<int32_t, int> BackupContent::DiscOf(const CatalogueFrame& frame) const {
    const BackupContent* source = Source(frame.source);
    const auto index = static_cast<size_t>(frame.medium) - 1;
    if (!source || index >= source->fManifest.media.size()) return {frame.source, 0};
    return {frame.source, source->fManifest.media[index].disc};
}

bool BackupContent::NeedsDiscs() const {
    const auto isAway = [](const BackupContent& content) {
        if (!content.fCanBeAway) return false;
        for (int disc = 1; disc <= content.Discs(); ++disc) {
            if (!content.HasDisc(disc)) return true;
        }
        return false;
    };
    return isAway(*this) ||
           std::ranges::any_of(fBases, [&](const auto& base) { return isAway(*base); });
}

// --- files --------------------------------------------------------------------------------------

const BackupContent* BackupContent::Source(int32_t source) const {
    // Without its bases it is the only one there is.
    const size_t own = fManifest.buildsOn.size();
    const auto at = static_cast<size_t>(source);
    if (source < 0 || at > own) return nullptr;
    if (at == own) return this;
    return at < fBases.size() ? fBases[at].get() : nullptr;
}

std::unique_ptr<archive::FileSource> BackupContent::File(const std::string& name) const {
    const auto medium = std::ranges::find(fManifest.media, name, &archive::ManifestMedium::file);
    const int disc = medium == fManifest.media.end() ? Discs() : medium->disc;
    if (fCanBeAway) return std::make_unique<DiscFile>(*this, disc, name);
    return archive::OpenOnVolume(Volume(), FolderOf(disc), name);
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
