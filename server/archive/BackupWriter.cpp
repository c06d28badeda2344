#include "server/archive/BackupWriter.h"

#include <openssl/evp.h>

#include <algorithm>
#include <utility>

#include "server/archive/Format.h"
#include "server/archive/Readme.h"

namespace server::archive {

namespace {

// Of a disc that is full something may stay free: less than a frame, packed.
constexpr int64_t kEnough = int64_t{10} << 20;
// For the end of a sealed medium, and what a file system needs for itself.
constexpr int64_t kReserve = int64_t{1} << 20;

}  // namespace

using kit::Error;
using kit::ErrorKind;
using kit::Status;

struct Sha256::State {
    State() : context(EVP_MD_CTX_new()) { EVP_DigestInit_ex(context, EVP_sha256(), nullptr); }
    ~State() { EVP_MD_CTX_free(context); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    EVP_MD_CTX* context;
};

Sha256::Sha256() : fState(std::make_unique<State>()) {}
Sha256::~Sha256() = default;
Sha256::Sha256(Sha256&&) noexcept = default;
Sha256& Sha256::operator=(Sha256&&) noexcept = default;

void Sha256::Update(std::span<const uint8_t> data) {
    EVP_DigestUpdate(fState->context, data.data(), data.size());
}

std::string Sha256::Finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_DigestFinal_ex(fState->context, digest, &size);
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < size; ++i)
        text += {kDigits[digest[i] >> 4], kDigits[digest[i] & 15]};
    return text;
}

BackupWriter::BackupWriter(KTVolume& volume, std::string name, std::string mediumSuffix,
                           std::function<void(int)> onMedium)
    : fVolume(volume),
      fName(std::move(name)),
      fSuffix(std::move(mediumSuffix)),
      fOnMedium(std::move(onMedium)),
      fMediaSize(volume.MediaSize()) {}

BackupWriter::~BackupWriter() {
    Discard();
}

void BackupWriter::WhenFull(std::function<bool()> makeRoom,
                            std::function<bool(const FullDisc&)> nextDisc) {
    fMakeRoom = std::move(makeRoom);
    fNextDisc = std::move(nextDisc);
}

std::vector<std::string> BackupWriter::Discard() {
    if (fPublished) return {};
    fFile.reset();
    // What cannot be removed stays as a partial backup, which nobody takes for a whole one.
    if (std::exchange(fBegun, false)) {
        (void)fVolume.RemoveBackup(fName + std::string(kPartialSuffix));
    }
    std::vector<std::string> left;
    for (int disc = 1; disc < fDisc; ++disc) {
        const std::string folder = PartFolder(fName, disc);
        if (!fVolume.RemoveBackup(folder)) left.push_back(folder);
    }
    fDisc = 1;
    return left;
}

// --- discs --------------------------------------------------------------------------------------

Status BackupWriter::Begin() {
    if (fMediaSize != 0 && fMediaSize < kMinMediaSize) {
        return Error::Make(ErrorKind::Invalid, fVolume.MediaName(), "media below 16 MiB");
    }
    Status status = BeginDisc();
    if (!status && status.error().kind == ErrorKind::Full && fMakeRoom && fMakeRoom()) {
        status = BeginDisc();
    }
    if (!status && status.error().kind == ErrorKind::Full && fNextDisc) {
        status = NextDisc(status.error());
    }
    return status;
}

Status BackupWriter::BeginDisc() {
    fOtherSums.clear();
    fOtherBytes = 0;
    const std::string_view readme = ReadmeText();
    Status status = fVolume.WriteRootFile(
        kReadmeFile, {reinterpret_cast<const uint8_t*>(readme.data()), readme.size()});
    if (status) status = fVolume.BeginBackup(fName);
    if (status) fBegun = true;
    return status;
}

Status BackupWriter::NextDisc(Error full) {
    const bool inMedia = fInMedia;
    if (fFile && inMedia && fPlainSize > 0) {
        if (Status status = FinishMedia(); !status) return status;
    }
    fFile.reset();
    std::vector<std::string> files;
    for (const ManifestMedium& medium : fMedia) {
        if (medium.disc == fDisc) files.push_back(medium.file);
    }
    if (std::exchange(fBegun, false)) {
        Status status = files.empty() ? fVolume.RemoveBackup(fName + std::string(kPartialSuffix))
                                      : fVolume.ClosePart(fName, PartFolder(fName, fDisc), files);
        if (!status) return status;
    }
    FullDisc disc{fDisc, kEnough + (inMedia ? 0 : fOtherBytes), std::move(full)};
    if (!files.empty()) ++fDisc;
    for (;;) {
        if (!fNextDisc(disc)) return disc.why;
        Status status = BeginDisc();
        if (status) return status;
        disc.why = status.error();
    }
}

// A sealed medium needs room for its end, however full the disc is.
bool BackupWriter::HasRoomFor(int64_t size) const {
    if (!fNextDisc || !fSealer) return true;
    const auto space = fVolume.Space();
    return !space || space->freeBytes < 0 || space->freeBytes >= size + kReserve;
}

// --- media --------------------------------------------------------------------------------------

kit::Result<BackupWriter::Place> BackupWriter::WriteFrame(std::span<const uint8_t> frame) {
    const auto size = static_cast<int64_t>(frame.size());
    for (;;) {
        if (fFile && fMediaSize > 0 && SizeWith(size) > fMediaSize) {
            if (Status status = FinishMedia(); !status) return status.error();
        }
        const int number = static_cast<int>(fMedia.size()) + 1;
        Status status;
        if (!fFile) {
            status = OpenFile(MediumFile(number, fSuffix), Content::Secret);
            fInMedia = true;
            if (status && fOnMedium) fOnMedium(number);
        }
        const Place place{number, fPlainSize};
        if (status) status = AppendFrame(frame);
        if (status) return place;
        if (status.error().kind != ErrorKind::Full || !fNextDisc) return status.error();
        if (status = NextDisc(status.error()); !status) return status.error();
    }
}

// All of it, or the medium is as it was before and must end there.
Status BackupWriter::AppendFrame(std::span<const uint8_t> frame) {
    const auto full = [this] { return Error::Make(ErrorKind::Full, fFileName); };
    const int64_t before = fPlainSize;
    while (!HasRoomFor(static_cast<int64_t>(frame.size()))) {
        if (!fMakeRoom || !fMakeRoom()) return full();
    }
    if (fSealer) fSealer->Note(&fMark);
    Status status = Append(frame);
    if (!status) {
        fPlainSize = before;
        if (fSealer) fSealer->GoBack(fMark);
    }
    return status;
}

Status BackupWriter::FinishMedia() {
    if (!fFile) return {};
    ManifestMedium medium;
    medium.file = fFileName;
    if (Status status = FinishFile(); !status) return status;
    medium.size = fFileSize;
    medium.sha256 = fLastSum;
    medium.disc = fDisc;
    fMedia.push_back(std::move(medium));
    return {};
}

int64_t BackupWriter::SizeWith(int64_t more) const {
    return fSealer ? fSealer->SizeOf(fPlainSize + more) : fPlainSize + more;
}

// --- files --------------------------------------------------------------------------------------

Status BackupWriter::OpenFile(std::string name, Content content) {
    fInMedia = false;
    fSealer.reset();
    if (fRecipient && content == Content::Secret) {
        auto sealer = AgeSealer::For(*fRecipient);
        if (!sealer) return sealer.error();
        fSealer = std::move(*sealer);
        name += kSealedSuffix;
    }
    auto file = fVolume.CreateFile(fName, name);
    while (!file && file.error().kind == ErrorKind::Full && fMakeRoom && fMakeRoom()) {
        file = fVolume.CreateFile(fName, name);
    }
    if (!file) return file.error();
    fFile = std::move(*file);
    fFileName = std::move(name);
    fFileSize = fPlainSize = 0;
    fSum = Sha256();
    return {};
}

Status BackupWriter::WriteToFile(std::span<const uint8_t> data) {
    return Append(data);
}

Status BackupWriter::Append(std::span<const uint8_t> data) {
    fPlainSize += static_cast<int64_t>(data.size());
    if (!fSealer) return WriteOut(data);
    fSealed.clear();
    fSealer->Add(data, &fSealed);
    return WriteOut(fSealed);
}

Status BackupWriter::WriteOut(std::span<const uint8_t> data) {
    for (;;) {
        Status status = fFile->Write(data);
        if (status) break;
        if (status.error().kind != ErrorKind::Full) return status;
        // What is there of it goes, so that it can be written whole once there is room, or the file
        // can end in front of it.
        if (Status cut = fFile->Truncate(fFileSize); !cut) return cut;
        if (!fMakeRoom || !fMakeRoom()) return status;
    }
    fFileSize += static_cast<int64_t>(data.size());
    fOtherBytes += fInMedia ? 0 : static_cast<int64_t>(data.size());
    fSum.Update(data);
    return {};
}

Status BackupWriter::FinishFile() {
    Status status;
    if (fSealer) {
        fSealed.clear();
        fSealer->Finish(&fSealed);
        status = WriteOut(fSealed);
    }
    if (status) status = fFile->Finish();
    fFile.reset();
    if (!status) return status;
    fLastSum = fSum.Finish();
    if (!fInMedia) fOtherSums += fLastSum + "  " + fFileName + "\n";
    return {};
}

Status BackupWriter::Publish() {
    std::string sums;
    for (const ManifestMedium& medium : fMedia)
        sums += medium.sha256 + "  " + medium.file + "\n";
    sums += fOtherSums;
    if (Status status = OpenFile(kSumsFile, Content::Public); !status) return status;
    if (Status status = Append({reinterpret_cast<const uint8_t*>(sums.data()), sums.size()});
        !status) {
        return status;
    }
    if (Status status = FinishFile(); !status) return status;
    if (Status status = fVolume.Publish(fName); !status) return status;
    fPublished = true;
    return {};
}

}  // namespace server::archive
