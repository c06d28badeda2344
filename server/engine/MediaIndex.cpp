#include "server/engine/MediaIndex.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "core/protocol/Texts.h"
#include "core/selection/KTSelection.h"
#include "server/archive/Format.h"

namespace server {

using archive::ReadMember;
using archive::TarType;
using core::LineType;
using kit::Status;
namespace text = core::text;

namespace {

constexpr int64_t kMostGone = int64_t{1} << 30;
constexpr size_t kGoneBlock = size_t{1} << 20;
constexpr size_t kLongestPath = size_t{64} << 10;

uint32_t ModeOf(TarType type) {
    switch (type) {
        case TarType::SymbolicLink:
            return S_IFLNK;
        case TarType::CharacterDevice:
            return S_IFCHR;
        case TarType::BlockDevice:
            return S_IFBLK;
        case TarType::Directory:
            return S_IFDIR;
        case TarType::Fifo:
            return S_IFIFO;
        default:  // of a hard link it is the first name's
            return S_IFREG;
    }
}

int64_t Nanoseconds(const ReadMember& member) {
    constexpr int64_t kSecond = 1'000'000'000;
    const int64_t seconds =
        std::clamp<int64_t>(member.seconds, INT64_MIN / kSecond + 1, INT64_MAX / kSecond - 1);
    return seconds * kSecond + member.nanoseconds;
}

CatalogueEntry EntryOf(const ReadMember& member) {
    CatalogueEntry entry;
    entry.mode = ModeOf(member.type) | member.mode;
    entry.uid = member.uid;
    entry.gid = member.gid;
    if (member.type == TarType::File) entry.size = member.realSize;
    if (member.type == TarType::SymbolicLink) entry.size = static_cast<int64_t>(member.link.size());
    entry.modified = Nanoseconds(member);
    return entry;
}

Status Lost() {
    return kit::Error::Make(kit::ErrorKind::Damaged, "", "a part of the stream is missing");
}

}  // namespace

MediaIndex::MediaIndex(const BackupContent& content, CatalogueStore& catalogues, JobReport& report,
                       JobControl& control)
    : fContent(content),
      fCatalogues(catalogues),
      fReport(report),
      fControl(control),
      fScanner(content) {}

bool MediaIndex::Run(const BackupInfo* base, BackupInfo* info) {
    CatalogueOrigin origin;
    origin.chain = info->builtOn;
    origin.chain.push_back(info->name);
    fSource = static_cast<int32_t>(info->builtOn.size());
    std::optional<CatalogueReader> before;
    if (base) {
        auto opened = CatalogueReader::Open(fCatalogues.PathOf(base->name));
        auto rules = opened ? opened->Origin() : opened.error();
        if (!rules) {
            fReport.Error(text::kNoDatabase, {}, rules.error().Text());
            return false;
        }
        before.emplace(std::move(*opened));
        // All of a set select the same.
        origin.rules = std::move(rules->rules);
    } else {
        origin.rules = fContent.Manifest().selection;
        // One rule less may be far more data: all of them, or none.
        if (std::ranges::any_of(origin.rules, [](const std::string& rule) {
                return !core::SelectionRule::Parse(rule);
            })) {
            origin.rules.clear();
        }
    }
    if (origin.rules.empty() && !info->IsCut()) {
        fReport.Words(LineType::Heading, "Nothing can be built on '" + info->title +
                                             "' any more: what it was to save was written in its "
                                             "lost catalogue only. Make a new full backup.");
    }
    auto writer = CatalogueWriter::Create(fCatalogues.PathForNew(info->name), origin);
    if (!writer) {
        fReport.Error(text::kLogNotCreated, {fCatalogues.PathForNew(info->name)},
                      writer.error().Text());
        return false;
    }
    fCatalogue = std::move(*writer);
    for (const auto& volume : fContent.Manifest().volumes)
        fVolumes.insert(volume.name);
    if (before) {
        Status taken = before->Frames([this](const CatalogueFrame& frame) {
            fCatalogue->AddFrame(frame);
            fNumber = frame.id;
            return true;
        });
        if (taken) taken = fTree.Take(*before);
        if (!taken) {
            fReport.Error(text::kNoDatabase, {}, taken.error().Text());
            return false;
        }
        TakeGone();
    }
    TakeMembers();
    if (!fControl.MayGoOn()) return false;
    for (const std::string& problem : fScanner.TakeProblems())
        fReport.ErrorWords("Error: " + problem);
    if (fMembers == 0 && !before) {
        fReport.Error(text::kNothingToInsert, {},
                      "There is nothing whole in '" + info->title + "'.");
        return false;
    }
    if (!fHasEndMark && !fIsLost && !info->IsCut())
        fReport.ErrorWords("Error: the data of '" + info->title + "' ends too early");
    const auto totals = fTree.Write(*fCatalogue);
    if (totals.lost > 0) {
        fReport.ErrorWords("Error: " + std::to_string(totals.lost) +
                           " hard links are links to what is lost and were left out");
    }
    info->files = totals.files;
    info->bytes = totals.bytes;
    if (auto status = fCatalogue->Finish(); !status) {
        fReport.Error(text::kLogNotWritten, {fCatalogue->Path()}, status.error().Text());
        return false;
    }
    return true;
}

// What the base has and this one has no more.
void MediaIndex::TakeGone() {
    const auto file = fContent.SecretFile(archive::kGoneFile);
    const auto size = file->Size();
    std::string path;
    Bytes block(kGoneBlock);
    Status read = size ? Status() : Status(size.error());
    if (size && *size > kMostGone)
        read = kit::Error::Make(kit::ErrorKind::TooLarge, archive::kGoneFile);
    for (int64_t offset = 0; read && offset < *size;) {
        const auto got = file->ReadAt(offset, block);
        if (!got) {
            read = got.error();
            break;
        }
        if (*got == 0) break;
        offset += static_cast<int64_t>(*got);
        for (const uint8_t byte : std::span(block).first(*got)) {
            if (byte != 0 && path.size() < kLongestPath) {
                path += static_cast<char>(byte);
                continue;
            }
            if (byte != 0) continue;
            fTree.Remove(path);
            fCatalogue->AddGone(path);
            path.clear();
        }
    }
    if (read) return;
    fReport.ErrorWords(
        "Error: it is not known what was deleted since the backup before: that is still in the "
        "tree",
        read.error().Text());
}

void MediaIndex::TakeMembers() {
    std::string last;
    while (fControl.MayGoOn()) {
        ReadMember member;
        CatalogueEntry entry;
        const bool wasLost = fIsLost;
        switch (Next(&member, &entry)) {
            case Step::Member:
                if (!Put(member, entry)) {
                    TellLost(member.path);
                    break;
                }
                ++fMembers;
                last = member.path;
                if (member.type != TarType::Directory) {
                    fReport.AddDone(1, member.type == TarType::File ? member.realSize : 0);
                    fReport.Tick("/" + member.path);
                }
                break;
            case Step::Lost:
                if (!member.path.empty()) {
                    TellLost(member.path);
                } else if (!wasLost) {
                    fReport.ErrorWords("Error: a part of the data cannot be read",
                                       last.empty() ? "" : "It lies behind '/" + last + "'.");
                }
                fIsLost = true;
                break;
            case Step::EndMark:
                fHasEndMark = true;
                // To the last byte: whether the media are what they were shows there.
                while (!fIsEnd)
                    (void)Advance();
                return;
            case Step::End:
                return;
        }
    }
}

void MediaIndex::TellLost(const std::string& path) {
    fReport.Error(text::kNotReadFromBackup, {"/" + path}, "It is not whole and was left out.");
}

// The next member that begins here, with all of its data behind it. `Lost`: there is none, or it is
// not whole; its path where that is known.
MediaIndex::Step MediaIndex::Next(ReadMember* member, CatalogueEntry* entry) {
    if (!HasMore()) return Step::End;
    const int64_t frame = fNumber;
    const auto offset = static_cast<int64_t>(fAt);
    std::array<uint8_t, archive::kTarBlock> first;
    if (!Read(first)) return Step::Lost;
    if (std::ranges::all_of(first, [](uint8_t byte) { return byte == 0; }))
        return fIsLost ? Step::Lost : Step::EndMark;
    bool isFirst = true;
    const auto read = archive::ReadTarHeader([&](std::span<uint8_t> into) -> Status {
        if (!std::exchange(isFirst, false)) return Read(into);
        std::memcpy(into.data(), first.data(), first.size());
        return {};
    });
    if (!read) return Step::Lost;
    // In the middle of something a block may look like a header, as one of a tar that was saved.
    if (fIsLost && !fVolumes.empty() &&
        !fVolumes.contains(read->path.substr(0, read->path.find('/'))))
        return Step::Lost;
    fIsLost = false;
    *member = *read;
    if (!Skip(member->size) || !Skip(archive::TarPadded(member->size) - member->size))
        return Step::Lost;
    *entry = EntryOf(*member);
    entry->frame = frame;
    entry->offset = offset;
    return Step::Member;
}

bool MediaIndex::Put(const ReadMember& member, const CatalogueEntry& entry) {
    const bool isPut = member.type == TarType::HardLink
                           ? fTree.PutLink(member.path, member.link, entry)
                           : fTree.Put(member.path, entry);
    // Without a manifest the volumes are those that were seen.
    if (isPut) fVolumes.emplace(member.path.substr(0, member.path.find('/')));
    return isPut;
}

// --- the stream ---------------------------------------------------------------------------------

bool MediaIndex::HasMore() {
    while (fAt == fFrame.content.size())
        if (!Advance() && fIsEnd) return false;
    return true;
}

Status MediaIndex::Advance() {
    fAt = 0;
    if (fIsEnd || !fControl.MayGoOn() || !fScanner.Next(&fFrame)) {
        fFrame.content.clear();
        fIsEnd = true;
        return Lost();
    }
    fFrame.place.id = ++fNumber;
    fFrame.place.source = fSource;
    fCatalogue->AddFrame(fFrame.place);
    if (!fFrame.isAfterGap) return {};
    fIsLost = true;
    return Lost();
}

Status MediaIndex::Read(std::span<uint8_t> into) {
    while (!into.empty()) {
        if (fAt == fFrame.content.size()) {
            if (auto status = Advance(); !status) return status;
            continue;
        }
        const size_t size = std::min(into.size(), fFrame.content.size() - fAt);
        std::memcpy(into.data(), fFrame.content.data() + fAt, size);
        fAt += size;
        into = into.subspan(size);
    }
    return {};
}

Status MediaIndex::Skip(int64_t size) {
    while (size > 0) {
        if (fAt == fFrame.content.size()) {
            if (auto status = Advance(); !status) return status;
            continue;
        }
        const int64_t part = std::min(size, static_cast<int64_t>(fFrame.content.size() - fAt));
        fAt += static_cast<size_t>(part);
        size -= part;
    }
    return {};
}

}  // namespace server
