#include "server/archive/TarMember.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>

#include "server/archive/Format.h"

namespace server::archive {

namespace {

// Where the fields of a ustar header lie.
struct Place {
    size_t offset, size;
};
constexpr Place kName{0, 100}, kMode{100, 8}, kUid{108, 8}, kGid{116, 8}, kSize{124, 12},
    kTime{136, 12}, kChecksum{148, 8}, kType{156, 1}, kLink{157, 100}, kMagic{257, 8},
    kOwner{265, 32}, kGroup{297, 32}, kMajor{329, 8}, kMinor{337, 8}, kPrefix{345, 155};

constexpr int64_t kMaxOctal7 = 07777777;
constexpr int64_t kMaxOctal11 = 077777777777;
constexpr char kPaxHeaderName[] = "././@PaxHeader";

using Block = std::array<char, kTarBlock>;

void PutText(Block& block, Place place, std::string_view text) {
    std::ranges::copy(text.substr(0, place.size), block.begin() + place.offset);
}

// Octal digits, ended by a NUL.
void PutOctal(Block& block, Place place, uint64_t value) {
    for (size_t i = place.size - 1; i-- > 0; value >>= 3) {
        block[place.offset + i] = static_cast<char>('0' + (value & 7));
    }
}

void PutChecksum(Block& block) {
    std::memset(block.data() + kChecksum.offset, ' ', kChecksum.size);
    unsigned sum = 0;
    for (char byte : block)
        sum += static_cast<unsigned char>(byte);
    PutOctal(block, {kChecksum.offset, 7}, sum);
}

void Append(Bytes& out, std::string_view text) {
    out.insert(out.end(), text.begin(), text.end());
}

// "LENGTH key=value\n", where the length counts itself.
void AppendRecord(Bytes& out, std::string_view key, std::string_view value) {
    const size_t rest = key.size() + value.size() + 3;
    size_t length = rest + 1;
    // One more digit may be what makes one more digit necessary.
    while (length != rest + std::to_string(length).size()) {
        length = rest + std::to_string(length).size();
    }
    Append(out, std::to_string(length));
    out.push_back(' ');
    Append(out, key);
    out.push_back('=');
    Append(out, value);
    out.push_back('\n');
}

void AppendNumber(Bytes& out, std::string_view key, int64_t value) {
    AppendRecord(out, key, std::to_string(value));
}

// Seconds and nanoseconds as one decimal number, without trailing zeros.
std::string DecimalTime(int64_t seconds, uint32_t nanoseconds) {
    std::string text;
    if (seconds < 0 && nanoseconds > 0) {
        // The fraction counts forward from a second before the epoch; a decimal number does not.
        seconds += 1;
        nanoseconds = 1'000'000'000 - nanoseconds;
        if (seconds == 0) text = "-";
    }
    text += std::to_string(seconds);
    if (nanoseconds == 0) return text;
    char digits[16];
    std::snprintf(digits, sizeof(digits), ".%09u", nanoseconds);
    text += digits;
    while (text.back() == '0')
        text.pop_back();
    return text;
}

// The path as name and prefix of a ustar header; nothing when it does not fit.
struct SplitPath {
    std::string_view prefix, name;
};
std::optional<SplitPath> Split(std::string_view path) {
    if (path.size() <= kName.size) return SplitPath{"", path};
    if (path.size() > kName.size + 1 + kPrefix.size) return std::nullopt;
    // The name as long as it may be: the first slash that leaves no more than fits. A directory's
    // slash at the end does not separate anything.
    const size_t from = path.size() - kName.size - 1;
    const size_t slash = path.find('/', from);
    if (slash == std::string_view::npos || slash + 1 >= path.size() || slash > kPrefix.size ||
        slash == 0) {
        return std::nullopt;
    }
    return SplitPath{path.substr(0, slash), path.substr(slash + 1)};
}

// The member's name for readers that do not know sparse files.
std::string SparseName(std::string_view path) {
    const size_t slash = path.rfind('/');
    const std::string folder(slash == std::string_view::npos ? "." : path.substr(0, slash));
    return folder + "/GNUSparseFile.0/" + std::string(path.substr(slash + 1));
}

void AppendBlock(Bytes& out, const Block& block) {
    out.insert(out.end(), block.begin(), block.end());
}

void AppendExtendedHeader(Bytes& out, const Bytes& records) {
    Block header{};
    PutText(header, kName, kPaxHeaderName);
    PutOctal(header, kMode, 0644);
    PutOctal(header, kUid, 0);
    PutOctal(header, kGid, 0);
    PutOctal(header, kSize, records.size());
    PutOctal(header, kTime, 0);
    header[kType.offset] = 'x';
    PutText(header, kMagic, std::string_view("ustar\00000", 8));
    PutChecksum(header);
    AppendBlock(out, header);
    out.insert(out.end(), records.begin(), records.end());
    out.resize(out.size() + static_cast<size_t>(TarPadded(static_cast<int64_t>(records.size()))) -
               records.size());
}

}  // namespace

void PaxRecords::Add(std::string_view key, std::string_view value) {
    AppendRecord(fBytes, key, value);
}

void PaxRecords::AddAttribute(std::string_view name, std::string_view value) {
    std::string key = "SCHILY.xattr.";
    for (char c : name) {
        if (c == '=') {
            key += "%3D";
        } else if (c == '%') {
            key += "%25";
        } else {
            key += c;
        }
    }
    AppendRecord(fBytes, key, value);
}

bool PaxRecords::AddAccessList(std::string_view key, std::span<const uint8_t> kernelForm) {
    constexpr size_t kHead = 4, kEntry = 8;
    constexpr uint32_t kVersion = 2;
    auto number = [&](size_t offset, size_t bytes) {
        uint32_t value = 0;
        for (size_t i = bytes; i-- > 0;)
            value = value << 8 | kernelForm[offset + i];
        return value;
    };
    if (kernelForm.size() < kHead || (kernelForm.size() - kHead) % kEntry != 0 ||
        number(0, 4) != kVersion) {
        return false;
    }
    std::string text;
    for (size_t at = kHead; at < kernelForm.size(); at += kEntry) {
        const uint32_t rights = number(at + 2, 2);
        std::string who;
        switch (number(at, 2)) {
            case 0x01:
                who = "user:";
                break;
            case 0x02:
                who = "user:" + std::to_string(number(at + 4, 4));
                break;
            case 0x04:
                who = "group:";
                break;
            case 0x08:
                who = "group:" + std::to_string(number(at + 4, 4));
                break;
            case 0x10:
                who = "mask:";
                break;
            case 0x20:
                who = "other:";
                break;
            default:
                return false;
        }
        if (!text.empty()) text += ',';
        text += who + ':';
        text += (rights & 4) != 0 ? 'r' : '-';
        text += (rights & 2) != 0 ? 'w' : '-';
        text += (rights & 1) != 0 ? 'x' : '-';
    }
    AppendRecord(fBytes, key, text);
    return true;
}

void AppendTarHeader(const TarMember& member, Bytes& out) {
    std::string path(member.path);
    if (member.type == TarType::Directory) path += '/';
    const std::string headerPath = member.sparse ? SparseName(path) : path;
    const std::optional<SplitPath> split = Split(headerPath);
    const bool longLink = member.link.size() > kLink.size;

    Bytes records;
    if (!split && !member.sparse) AppendRecord(records, "path", path);
    if (longLink) AppendRecord(records, "linkpath", member.link);
    if (member.nanoseconds != 0 || member.seconds < 0 || member.seconds > kMaxOctal11) {
        AppendRecord(records, "mtime", DecimalTime(member.seconds, member.nanoseconds));
    }
    if (member.size > kMaxOctal11) AppendNumber(records, "size", member.size);
    if (member.uid > kMaxOctal7) AppendNumber(records, "uid", member.uid);
    if (member.gid > kMaxOctal7) AppendNumber(records, "gid", member.gid);
    if (member.owner.size() >= kOwner.size) AppendRecord(records, "uname", member.owner);
    if (member.group.size() >= kGroup.size) AppendRecord(records, "gname", member.group);
    if (member.sparse) {
        AppendRecord(records, "GNU.sparse.major", "1");
        AppendRecord(records, "GNU.sparse.minor", "0");
        AppendRecord(records, "GNU.sparse.name", path);
        AppendNumber(records, "GNU.sparse.realsize", member.realSize);
    }
    if (member.extra) {
        records.insert(records.end(), member.extra->Data().begin(), member.extra->Data().end());
    }
    if (!records.empty()) AppendExtendedHeader(out, records);

    Block header{};
    if (split) {
        PutText(header, kName, split->name);
        PutText(header, kPrefix, split->prefix);
    } else {
        PutText(header, kName, headerPath);  // cut: the record above has it whole
    }
    PutOctal(header, kMode, member.mode & 07777);
    PutOctal(header, kUid, member.uid > kMaxOctal7 ? 0 : member.uid);
    PutOctal(header, kGid, member.gid > kMaxOctal7 ? 0 : member.gid);
    PutOctal(header, kSize, member.size > kMaxOctal11 ? 0 : static_cast<uint64_t>(member.size));
    PutOctal(header, kTime,
             static_cast<uint64_t>(std::clamp<int64_t>(member.seconds, 0, kMaxOctal11)));
    header[kType.offset] = static_cast<char>(member.type);
    PutText(header, kLink, member.link);
    PutText(header, kMagic, std::string_view("ustar\00000", 8));
    // A name that fills its field would have no end.
    if (member.owner.size() < kOwner.size) PutText(header, kOwner, member.owner);
    if (member.group.size() < kGroup.size) PutText(header, kGroup, member.group);
    PutOctal(header, kMajor, member.major);
    PutOctal(header, kMinor, member.minor);
    PutChecksum(header);
    AppendBlock(out, header);
}

Bytes SparseMap(std::span<const Extent> extents) {
    Bytes map;
    auto line = [&](int64_t value) {
        char text[24];
        char* end = std::to_chars(text, text + sizeof(text) - 1, value).ptr;
        *end++ = '\n';
        map.insert(map.end(), text, end);
    };
    line(static_cast<int64_t>(extents.size()));
    for (const Extent& extent : extents) {
        line(extent.offset);
        line(extent.length);
    }
    map.resize(static_cast<size_t>(TarPadded(static_cast<int64_t>(map.size()))));
    return map;
}

}  // namespace server::archive
