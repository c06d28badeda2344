#include "server/engine/BackupContent.h"

#include <xxhash.h>

#include <algorithm>
#include <functional>

#include "core/protocol/Texts.h"
#include "server/archive/AgeStream.h"
#include "server/archive/Format.h"
#include "server/engine/FoundBackup.h"
#include "server/engine/LookAgain.h"

namespace server {

namespace {

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
      fFolder(info.Folder()) {}

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
    if (auto status = content->ReadItsManifest(info, config); !status) return status.error();
    // Whoever put plain media in the place of sealed ones is not to be believed.
    if (content->fManifest.isProtected != info.isProtected) {
        return Damaged(archive::kManifestFile, "protected, or not, as it should not be");
    }
    if (info.isProtected) {
        const auto found = keys.find(info.name);
        if (found == keys.end()) {
            return kit::Error::Make(kit::ErrorKind::Denied, info.name, "protected by a password");
        }
        content->fKey = found->second;
    }

    auto compressor = LoadCompressor(config.addOnFolder, content->fManifest.compressor);
    if (!compressor) return compressor.error();
    content->fCompressor.emplace(std::move(*compressor));
    for (const archive::ManifestMedium& medium : content->fManifest.media)
        content->fMedia.push_back(content->Plain(content->File(medium.file)));
    return content;
}

kit::Status BackupContent::ReadItsManifest(const BackupInfo& info, const EngineConfig& config) {
    // Of a backup on several discs it is known here, so that none is put in for it alone.
    const bool isKnown = !info.manifest.empty();
    if (!isKnown && fCanBeAway) {
        if (auto status = Load(Discs()); !status) return status;
    }
    auto manifest = isKnown        ? archive::ReadManifest(info.manifest)
                    : info.isLoose ? ManifestOfFiles(Volume(), fFolder, config.addOnFolder)
                                   : ReadManifestOf(Volume(), fFolder);
    if (!manifest) return manifest.error();
    fManifest = std::move(*manifest);
    if (fManifest.name != info.name) return Damaged(archive::kManifestFile, "of another backup");
    // It is not there to say so.
    if (info.isLoose) fManifest.buildsOn = info.builtOn;
    if (!isKnown) archive::GatherDiscs(&fManifest);
    return {};
}

// --- discs --------------------------------------------------------------------------------------

std::string BackupContent::FolderOf(int disc) const {
    return disc == Discs() ? fFolder : archive::PartFolder(fManifest.name, disc);
}

// What it is known by: no other disc has this folder. What is missing in it is damage.
bool BackupContent::HasDisc(int disc) const {
    const auto files = Volume().ListFiles(FolderOf(disc));
    return files && !files->empty();
}

int BackupContent::MissingDisc() const {
    for (int disc = 1; disc <= Discs(); ++disc) {
        if (!HasDisc(disc)) return disc;
    }
    return 0;
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
        return content.fCanBeAway && content.MissingDisc() != 0;
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

std::unique_ptr<archive::FileSource> BackupContent::Plain(
    std::unique_ptr<archive::FileSource> file) const {
    return fKey ? archive::OpenAge(std::move(file), fKey) : std::move(file);
}

std::unique_ptr<archive::FileSource> BackupContent::SecretFile(const std::string& name) const {
    return Plain(File(fKey ? name + std::string(archive::kSealedSuffix) : name));
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
