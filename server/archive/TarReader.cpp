#include "server/archive/TarReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

#include "server/archive/Format.h"

namespace server::archive {

namespace {

constexpr size_t kMostRecords = size_t{16} << 20;  // bytes of an extended header
constexpr int64_t kMostExtents = 1 << 20;
constexpr std::string_view kAttribute = "SCHILY.xattr.";

using Block = std::array<uint8_t, kTarBlock>;

kit::Error Damaged(const char* detail) {
    return kit::Error::Make(kit::ErrorKind::Damaged, "", detail);
}

std::string_view TextOf(const Block& block, size_t offset, size_t size) {
    const std::string_view field(reinterpret_cast<const char*>(block.data()) + offset, size);
    return field.substr(0, field.find('\0'));
}

bool OctalOf(const Block& block, size_t offset, size_t size, uint64_t* value) {
    std::string_view text = TextOf(block, offset, size);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    *value = 0;
    if (text.empty()) return true;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value, 8);
    return error == std::errc() && end == text.data() + text.size();
}

bool HasItsChecksum(const Block& block) {
    uint64_t told = 0;
    if (!OctalOf(block, 148, 8, &told)) return false;
    uint64_t sum = 0;
    for (size_t i = 0; i < block.size(); ++i)
        sum += i >= 148 && i < 156 ? ' ' : block[i];
    return sum == told;
}

template <class Number>
bool Decimal(std::string_view text, Number* value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return error == std::errc() && end == text.data() + text.size();
}

// A decimal number of seconds; a fraction counts away from zero.
bool TimeOf(std::string_view text, int64_t* seconds, uint32_t* nanoseconds) {
    const bool negative = text.starts_with('-');
    const size_t point = text.find('.');
    if (!Decimal(text.substr(0, point), seconds)) {
        if (text.substr(0, point) != "-") return false;
        *seconds = 0;
    }
    *nanoseconds = 0;
    if (point == std::string_view::npos) return true;
    std::string digits(text.substr(point + 1, 9));
    digits.resize(9, '0');
    if (!Decimal<uint32_t>(digits, nanoseconds)) return false;
    if (negative && *nanoseconds > 0) {
        if (*seconds == INT64_MIN) return false;
        *seconds -= 1;
        *nanoseconds = 1'000'000'000 - *nanoseconds;
    }
    return true;
}

std::string Unescaped(std::string_view name) {
    std::string plain;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name.substr(i, 3) == "%3D" || name.substr(i, 3) == "%25") {
            plain += name[i + 1] == '3' ? '=' : '%';
            i += 2;
        } else {
            plain += name[i];
        }
    }
    return plain;
}

// "user::rwx,user:1000:r-x,…" as the kernel takes it.
std::optional<Bytes> AccessListOf(std::string_view text) {
    Bytes list{2, 0, 0, 0};
    const auto put = [&](uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            list.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    while (!text.empty()) {
        const std::string_view entry = text.substr(0, text.find(','));
        text.remove_prefix(std::min(text.size(), entry.size() + 1));
        const size_t first = entry.find(':');
        const size_t second = first == std::string_view::npos ? first : entry.find(':', first + 1);
        if (second == std::string_view::npos || entry.size() != second + 4) return std::nullopt;
        const std::string_view who = entry.substr(0, first);
        const std::string_view id = entry.substr(first + 1, second - first - 1);
        const std::string_view rights = entry.substr(second + 1);
        uint32_t tag = 0, number = UINT32_MAX, bits = 0;
        if (who == "user") {
            tag = id.empty() ? 0x01 : 0x02;
        } else if (who == "group") {
            tag = id.empty() ? 0x04 : 0x08;
        } else if (who == "mask") {
            tag = 0x10;
        } else if (who == "other") {
            tag = 0x20;
        } else {
            return std::nullopt;
        }
        if (!id.empty() && !Decimal(id, &number)) return std::nullopt;
        for (size_t i = 0; i < 3; ++i) {
            if (rights[i] == "rwx"[i]) {
                bits |= 4U >> i;
            } else if (rights[i] != '-') {
                return std::nullopt;
            }
        }
        put(tag, 2);
        put(bits, 2);
        put(number, 4);
    }
    return list;
}

struct Extended {
    std::optional<std::string> path, link, owner, group, sparsePath;
    std::optional<int64_t> size;
    std::optional<uint32_t> uid, gid;
    bool hasTime = false, sparse = false;
};

// One record of an extended header, taken into the member or into what overrides its fields.
bool Take(std::string_view key, std::string_view value, ReadMember* member, Extended* extended) {
    if (key == "path") {
        extended->path = value;
    } else if (key == "linkpath") {
        extended->link = value;
    } else if (key == "uname") {
        extended->owner = value;
    } else if (key == "gname") {
        extended->group = value;
    } else if (key == "mtime") {
        extended->hasTime = true;
        return TimeOf(value, &member->seconds, &member->nanoseconds);
    } else if (key == "size") {
        return Decimal(value, &extended->size.emplace());
    } else if (key == "uid") {
        return Decimal(value, &extended->uid.emplace());
    } else if (key == "gid") {
        return Decimal(value, &extended->gid.emplace());
    } else if (key == "GNU.sparse.major") {
        extended->sparse = true;
        return value == "1";
    } else if (key == "GNU.sparse.minor") {
        return value == "0";
    } else if (key == "GNU.sparse.name") {
        extended->sparsePath = value;
    } else if (key == "GNU.sparse.realsize") {
        return Decimal(value, &member->realSize) && member->realSize >= 0;
    } else if (key.starts_with(kAttribute)) {
        member->attributes.emplace_back(Unescaped(key.substr(kAttribute.size())), value);
    } else if (key == "SCHILY.acl.access" || key == "SCHILY.acl.default") {
        auto list = AccessListOf(value);
        if (!list) return false;
        (key == "SCHILY.acl.access" ? member->accessList : member->defaultList) = std::move(list);
    }
    return true;
}

bool TakeRecords(std::string_view records, ReadMember* member, Extended* extended) {
    while (!records.empty()) {
        const size_t blank = records.find(' ');
        size_t length = 0;
        if (blank == std::string_view::npos || !Decimal(records.substr(0, blank), &length) ||
            length > records.size() || length < blank + 3 || records[length - 1] != '\n') {
            return false;
        }
        const std::string_view record = records.substr(blank + 1, length - blank - 2);
        const size_t equals = record.find('=');
        if (equals == std::string_view::npos) return false;
        if (!Take(record.substr(0, equals), record.substr(equals + 1), member, extended)) {
            return false;
        }
        records.remove_prefix(length);
    }
    return true;
}

}  // namespace

kit::Result<ReadMember> ReadTarHeader(const ReadBytes& read) {
    ReadMember member;
    Extended extended;
    Block block;
    if (auto status = read(block); !status) return status.error();
    if (!HasItsChecksum(block)) return Damaged("no header");
    if (block[156] == 'x') {
        uint64_t size = 0;
        if (!OctalOf(block, 124, 12, &size) || size > kMostRecords) {
            return Damaged("extended header");
        }
        Bytes records(static_cast<size_t>(TarPadded(static_cast<int64_t>(size))));
        if (auto status = read(records); !status) return status.error();
        if (!TakeRecords({reinterpret_cast<const char*>(records.data()), size}, &member,
                         &extended)) {
            return Damaged("extended header");
        }
        if (auto status = read(block); !status) return status.error();
        if (!HasItsChecksum(block)) return Damaged("no header");
    }
    uint64_t mode = 0, uid = 0, gid = 0, size = 0, time = 0, major = 0, minor = 0;
    if (!OctalOf(block, 100, 8, &mode) || !OctalOf(block, 108, 8, &uid) ||
        !OctalOf(block, 116, 8, &gid) || !OctalOf(block, 124, 12, &size) ||
        !OctalOf(block, 136, 12, &time) || !OctalOf(block, 329, 8, &major) ||
        !OctalOf(block, 337, 8, &minor)) {
        return Damaged("header");
    }
    switch (block[156]) {
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
            member.type = static_cast<TarType>(block[156]);
            break;
        default:
            return Damaged("unknown type");
    }
    member.mode = static_cast<uint32_t>(mode & 07777);
    member.uid = extended.uid.value_or(static_cast<uint32_t>(uid));
    member.gid = extended.gid.value_or(static_cast<uint32_t>(gid));
    member.size = extended.size.value_or(static_cast<int64_t>(size));
    member.major = static_cast<uint32_t>(major);
    member.minor = static_cast<uint32_t>(minor);
    if (!extended.hasTime) member.seconds = static_cast<int64_t>(time);
    member.owner = extended.owner.value_or(std::string(TextOf(block, 265, 32)));
    member.group = extended.group.value_or(std::string(TextOf(block, 297, 32)));
    member.link = extended.link.value_or(std::string(TextOf(block, 157, 100)));
    member.sparse = extended.sparse;
    if (extended.sparsePath) {
        member.path = *extended.sparsePath;
    } else if (extended.path) {
        member.path = *extended.path;
    } else {
        const std::string_view prefix = TextOf(block, 345, 155);
        member.path = prefix.empty() ? "" : std::string(prefix) + "/";
        member.path += TextOf(block, 0, 100);
    }
    if (member.path.ends_with('/')) member.path.pop_back();
    if (member.size < 0 || (member.sparse && member.type != TarType::File)) {
        return Damaged("header");
    }
    if (!member.sparse) member.realSize = member.size;
    return member;
}

kit::Result<std::vector<Extent>> ReadSparseMap(const ReadBytes& read, const ReadMember& member,
                                               int64_t* used) {
    *used = 0;
    std::string text;
    size_t at = 0;
    kit::Status failed;
    // The next number, with as many further blocks as it takes.
    const auto number = [&](int64_t* value) {
        for (;;) {
            const size_t end = text.find('\n', at);
            if (end != std::string::npos) {
                const bool good = Decimal(std::string_view(text).substr(at, end - at), value);
                at = end + 1;
                return good && *value >= 0;
            }
            if (text.size() - at > 24 || *used + static_cast<int64_t>(kTarBlock) > member.size) {
                return false;
            }
            text.erase(0, at);
            at = 0;
            Block block;
            failed = read(block);
            if (!failed) return false;
            *used += static_cast<int64_t>(kTarBlock);
            text.append(reinterpret_cast<const char*>(block.data()), block.size());
        }
    };
    const auto problem = [&] { return failed ? Damaged("map of a sparse file") : failed.error(); };
    int64_t count = 0;
    if (!number(&count) || count > kMostExtents) return problem();
    std::vector<Extent> extents;
    int64_t end = 0, sum = 0;
    for (int64_t i = 0; i < count; ++i) {
        Extent extent;
        if (!number(&extent.offset) || !number(&extent.length)) return problem();
        if (extent.offset < end || extent.offset > member.realSize ||
            extent.length > member.realSize - extent.offset) {
            return Damaged("map of a sparse file");
        }
        end = extent.offset + extent.length;
        sum += extent.length;
        extents.push_back(extent);
    }
    if (sum != member.size - *used) return Damaged("map of a sparse file");
    return extents;
}

}  // namespace server::archive
