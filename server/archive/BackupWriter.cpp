#include "server/archive/BackupWriter.h"

#include <openssl/evp.h>

#include <algorithm>

#include "server/archive/Format.h"

namespace server::archive {

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
                           std::function<bool(int)> onFull, std::function<void(int)> onMedium)
    : fVolume(volume),
      fName(std::move(name)),
      fSuffix(std::move(mediumSuffix)),
      fOnFull(std::move(onFull)),
      fOnMedium(std::move(onMedium)),
      fMediaSize(volume.MediaSize()) {}

BackupWriter::~BackupWriter() {
    if (!fBegun || fPublished) return;
    fFile.reset();
    // What cannot be removed stays as a partial backup, which nobody takes for a whole one.
    (void)fVolume.RemoveBackup(fName + std::string(kPartialSuffix));
}

Status BackupWriter::Begin() {
    if (fMediaSize != 0 && fMediaSize < kMinMediaSize) {
        return Error::Make(ErrorKind::Invalid, fVolume.MediaName(), "media below 16 MiB");
    }
    if (Status status = fVolume.BeginBackup(fName); !status) return status;
    fBegun = true;
    return {};
}

kit::Result<BackupWriter::Place> BackupWriter::WriteFrame(std::span<const uint8_t> frame) {
    if (fFile && fMediaSize > 0 && SizeWith(static_cast<int64_t>(frame.size())) > fMediaSize) {
        if (Status status = FinishMedia(); !status) return status.error();
    }
    if (!fFile) {
        const int number = static_cast<int>(fMedia.size()) + 1;
        if (Status status = OpenFile(MediumFile(number, fSuffix), Content::Secret); !status) {
            return status.error();
        }
        if (fOnMedium) fOnMedium(number);
    }
    const Place place{static_cast<int>(fMedia.size()) + 1, fPlainSize};
    if (Status status = Append(frame); !status) return status.error();
    return place;
}

Status BackupWriter::FinishMedia() {
    if (!fFile) return {};
    ManifestMedium medium;
    medium.file = fFileName;
    if (Status status = FinishFile(); !status) return status;
    medium.size = fFileSize;
    medium.sha256 = fLastSum;
    fMedia.push_back(std::move(medium));
    return {};
}

int64_t BackupWriter::SizeWith(int64_t more) const {
    return fSealer ? fSealer->SizeOf(fPlainSize + more) : fPlainSize + more;
}

Status BackupWriter::OpenFile(std::string name, Content content) {
    fSealer.reset();
    if (fRecipient && content == Content::Secret) {
        auto sealer = AgeSealer::For(*fRecipient);
        if (!sealer) return sealer.error();
        fSealer = std::move(*sealer);
        name += kSealedSuffix;
    }
    const int medium = static_cast<int>(fMedia.size()) + 1;
    auto file = fVolume.CreateFile(fName, name);
    while (!file && file.error().kind == ErrorKind::Full && fOnFull(medium)) {
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
        // What is there of it goes, so that it can be written whole once there is room.
        if (Status cut = fFile->Truncate(fFileSize); !cut) return cut;
        if (!fOnFull(static_cast<int>(fMedia.size()) + 1)) return status;
    }
    fFileSize += static_cast<int64_t>(data.size());
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
    fSums += fLastSum + "  " + fFileName + "\n";
    return {};
}

Status BackupWriter::Publish() {
    const std::string sums = fSums;
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
