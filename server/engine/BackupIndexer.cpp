#include "server/engine/BackupIndexer.h"

#include <fcntl.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>

#include "core/protocol/Texts.h"
#include "kit/storage/FileIo.h"
#include "kit/support/UniqueFd.h"
#include "server/archive/BackupWriter.h"
#include "server/archive/Format.h"
#include "server/archive/SumsFile.h"
#include "server/catalogue/CatalogueCopy.h"
#include "server/engine/MediaIndex.h"

namespace server {

using core::LineType;
using kit::ErrorKind;
using kit::Status;
namespace text = core::text;

namespace {

constexpr size_t kBlock = size_t{4} << 20;
// What a catalogue of a few rows unpacks to, and how much better than ours any other packs.
constexpr int64_t kLeastLimit = int64_t{64} << 20;
constexpr int64_t kMostRatio = 100;

// Takes the file away when it goes.
struct Scratch {
    explicit Scratch(std::string file) : path(std::move(file)) {}
    ~Scratch() { ::unlink(path.c_str()); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    const std::string path;
};

Status Damaged(const char* what) {
    return kit::Error::Make(ErrorKind::Damaged, archive::kCatalogueFile, what);
}

// Unpacks a file of zstd frames, piece by piece.
class Unpacker {
public:
    Unpacker(int file, std::string path, int64_t limit)
        : fContext(ZSTD_createDCtx(), &ZSTD_freeDCtx),
          fFile(file),
          fPath(std::move(path)),
          fLeft(limit),
          fOut(ZSTD_DStreamOutSize()) {}

    Status Add(std::span<const uint8_t> packed) {
        if (!fContext) return kit::Error::Make(ErrorKind::Io, "", "no memory to unpack");
        ZSTD_inBuffer in{packed.data(), packed.size(), 0};
        for (bool isFull = false; in.pos < in.size || isFull;) {
            ZSTD_outBuffer out{fOut.data(), fOut.size(), 0};
            fWanted = ZSTD_decompressStream(fContext.get(), &out, &in);
            if (ZSTD_isError(fWanted)) return Damaged(ZSTD_getErrorName(fWanted));
            fLeft -= static_cast<int64_t>(out.pos);
            if (fLeft < 0) return Damaged("unpacks to more than a catalogue has");
            if (auto status = kit::WriteAll(fFile, std::span(fOut).first(out.pos), fPath); !status)
                return status;
            isFull = out.pos == out.size && fWanted != 0;
        }
        return {};
    }
    Status Finish() const { return fWanted == 0 ? Status() : Damaged("the file ends too early"); }

private:
    std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> fContext;
    const int fFile;
    const std::string fPath;
    int64_t fLeft;
    size_t fWanted = 1;
    Bytes fOut;
};

}  // namespace

BackupIndexer::BackupIndexer(CatalogueStore& catalogues, JobReport& report, JobControl& control)
    : fCatalogues(catalogues), fReport(report), fControl(control) {}

bool BackupIndexer::Run(const BackupContent& content, BackupInfo* info) {
    const Status quick = Quick(content, info);
    if (quick) {
        fReport.AddDone(info->files, info->bytes);
        return true;
    }
    if (fControl.IsAborted()) return false;
    fReport.Line(LineType::Heading, text::kQuickIndexFailed);
    fReport.Words(LineType::Detail, quick.error().Text());
    return FromMedia(content, info);
}

Status BackupIndexer::Quick(const BackupContent& content, BackupInfo* info) {
    const Scratch fetched(fCatalogues.PathForNew(info->name + ".fetched"));
    if (auto status = Fetch(content, *info, fetched.path); !status) return status;
    auto copied = CopyCatalogue(fetched.path, fCatalogues.PathForNew(info->name), info->name,
                                [this] { return fControl.MayGoOn(); });
    if (!copied) return copied.error();
    auto builtOn = std::move(copied->origin.chain);
    builtOn.pop_back();
    if (!info->isLoose && builtOn != info->builtOn) {
        ::unlink(fCatalogues.PathForNew(info->name).c_str());
        return Damaged("says of what it is built what the manifest does not say");
    }
    info->builtOn = std::move(builtOn);
    info->files = copied->files;
    info->bytes = copied->bytes;
    return {};
}

// Unpacks the catalogue that lies beside the media. Its sum is that of the file as it lies there; a
// sealed one is looked after by its seals.
Status BackupIndexer::Fetch(const BackupContent& content, const BackupInfo& info,
                            const std::string& to) {
    const auto file = content.SecretFile(archive::kCatalogueFile);
    const auto size = file->Size();
    if (!size) return size.error();
    kit::UniqueFd out(::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!out.IsOpen()) return kit::Error::FromErrno(errno, to, "create");
    Unpacker unpacker(out.Get(), to,
                      std::max(kLeastLimit, std::min(*size, INT64_MAX / kMostRatio) * kMostRatio));
    archive::Sha256 sha;
    Bytes block(kBlock);
    for (int64_t offset = 0; offset < *size;) {
        if (!fControl.MayGoOn()) return kit::Error::Make(ErrorKind::Aborted, to);
        const auto got = file->ReadAt(offset, block);
        if (!got) return got.error();
        if (*got == 0) break;
        const auto part = std::span<const uint8_t>(block).first(*got);
        sha.Update(part);
        if (auto status = unpacker.Add(part); !status) return status;
        offset += static_cast<int64_t>(*got);
    }
    if (auto status = unpacker.Finish(); !status) return status;
    if (info.isProtected) return {};
    const auto sums = archive::ReadSums(*content.File(archive::kSumsFile));
    if (!sums) {
        // One that ended before has none; its catalogue has to speak for itself.
        if (!info.IsCut())
            fReport.ErrorWords("Error: the checksums of '" + info.name + "' cannot be read",
                               sums.error().Text());
        return {};
    }
    const auto sum = sums->find(archive::kCatalogueFile);
    if (sum == sums->end() || sum->second != sha.Finish()) return Damaged("wrong checksum");
    return {};
}

bool BackupIndexer::FromMedia(const BackupContent& content, BackupInfo* info) {
    if (const int disc = content.MissingDisc(); disc != 0 && !content.AsksForDiscs()) {
        fReport.ErrorWords(
            "Error: disc " + std::to_string(disc) + " of '" + info->title + "' is not there",
            "Its data would have to be read. Copy the folders of all its discs into "
            "one, delete it from the list and insert it from there.");
        return false;
    }
    // What it builds on has the rest of its tree.
    std::shared_ptr<const BackupInfo> base;
    if (!info->builtOn.empty()) {
        base = fCatalogues.Use(info->builtOn.back());
        if (!base || base->isLocked) {
            fReport.Error(
                text::kBackupMissing, {info->builtOn.back()},
                "'" + info->title + "' is built on it: that one must be in the catalogue first.");
            return false;
        }
    }
    return MediaIndex(content, fCatalogues, fReport, fControl).Run(base.get(), info);
}

}  // namespace server
