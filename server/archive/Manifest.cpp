#include "server/archive/Manifest.h"

#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "server/archive/Format.h"

namespace server::archive {

namespace {

using nlohmann::ordered_json;

constexpr char kFormatName[] = "velmora-backup";
constexpr size_t kMaxMedia = 1'000'000;
constexpr size_t kMaxVolumes = 10'000;
constexpr int32_t kMaxDiscs = 1'000'000;

const char* KindOf(core::JobType type) {
    switch (type) {
        case core::JobType::Incremental:
            return "incremental";
        case core::JobType::Differential:
            return "differential";
        default:
            return "full";
    }
}

std::string UtcTime(int64_t seconds) {
    const std::time_t time = seconds;
    std::tm utc{};
    ::gmtime_r(&time, &utc);
    char text[64];
    std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

int64_t SecondsOf(const std::string& text) {
    std::tm utc{};
    const char* end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return end && *end == '\0' ? ::timegm(&utc) : 0;
}

// JSON holds text, names are bytes: one that is no UTF-8 is given in hexadecimal digits beside.
void PutBytes(ordered_json& object, const std::string& key, const std::string& bytes) {
    const ordered_json text = bytes;
    object[key] = bytes;
    const std::string dumped = text.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    if (ordered_json::parse(dumped).get<std::string>() == bytes) return;
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    object[key + "_hex"] = hex;
}

std::string GetBytes(const ordered_json& object, const std::string& key) {
    const std::string hex = object.value(key + "_hex", std::string());
    if (hex.empty()) return object.value(key, std::string());
    auto digit = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : 0;
    };
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(digit(hex[i]) << 4 | digit(hex[i + 1]));
    }
    return bytes;
}

bool IsPlainName(const std::string& name) {
    return !name.empty() && name.size() < 256 && name[0] != '.' &&
           name.find_first_of(std::string_view("/\0\n", 3)) == std::string::npos;
}

// A whole number from 0 to `most`, `absent` where there is none of that name; nothing for what
// cannot be.
std::optional<int64_t> NumberOf(const ordered_json& object, const char* key, int64_t absent,
                                int64_t most = INT64_MAX) {
    const auto found = object.find(key);
    if (found == object.end()) return absent;
    // Above what is signed it reads as below 0.
    if (!found->is_number_integer()) return std::nullopt;
    const auto number = found->get<int64_t>();
    if (number < 0 || number > most) return std::nullopt;
    return number;
}

kit::Error Damaged(const char* what) {
    return kit::Error::Make(kit::ErrorKind::Damaged, kManifestFile, what);
}

}  // namespace

Bytes WriteManifest(const Manifest& manifest) {
    ordered_json json;
    json["format"] = kFormatName;
    json["version"] = kFormatVersion;
    json["name"] = manifest.name;
    json["title"] = manifest.title;
    json["kind"] = KindOf(manifest.type);
    json["job_id"] = manifest.jobId;
    json["base_id"] = manifest.baseId;
    json["base_backup"] = manifest.baseBackup;
    json["builds_on"] = manifest.buildsOn;
    json["start"] = UtcTime(manifest.start);
    json["end"] = UtcTime(manifest.end);
    json["host"] = manifest.host;
    json["volumes"] = ordered_json::array();
    for (const ManifestVolume& volume : manifest.volumes) {
        ordered_json object;
        PutBytes(object, "name", volume.name);
        PutBytes(object, "mount", volume.mountPoint);
        object["file_system"] = volume.fileSystem;
        json["volumes"].push_back(std::move(object));
    }
    if (!manifest.selection.empty()) json["selection"] = ordered_json::array();
    for (const std::string& rule : manifest.selection) {
        ordered_json object;
        PutBytes(object, "rule", rule);
        json["selection"].push_back(std::move(object));
    }
    json["compressor"] = manifest.compressor;
    json["unpack_with"] = manifest.stockCommand;
    json["protected"] = manifest.isProtected;
    json["media"] = ordered_json::array();
    for (const ManifestMedium& medium : manifest.media) {
        json["media"].push_back(
            {{"file", medium.file}, {"size", medium.size}, {"sha256", medium.sha256}});
        if (manifest.discs > 1) json["media"].back()["disc"] = medium.disc;
    }
    if (manifest.discs > 1) json["discs"] = manifest.discs;
    json["entries"] = manifest.entries;
    json["files"] = manifest.files;
    json["bytes"] = manifest.bytes;
    json["errors"] = manifest.errors;
    std::string text = json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
    return {text.begin(), text.end()};
}

void GatherDiscs(Manifest* manifest) {
    manifest->discs = 1;
    for (ManifestMedium& medium : manifest->media)
        medium.disc = 1;
}

kit::Result<Manifest> ReadManifest(std::span<const uint8_t> bytes) {
    try {
        const ordered_json json = ordered_json::parse(bytes.begin(), bytes.end());
        if (!json.is_object() || json.value("format", "") != kFormatName) {
            return Damaged("not a manifest");
        }
        if (json.value("version", 0) > kFormatVersion) {
            return kit::Error::Make(kit::ErrorKind::Unsupported, kManifestFile,
                                    "made by a later version");
        }
        Manifest manifest;
        manifest.name = json.at("name").get<std::string>();
        if (!IsBackupName(manifest.name)) return Damaged("no backup's name");
        manifest.title = json.value("title", "");
        const std::string kind = json.at("kind").get<std::string>();
        manifest.type = kind == KindOf(core::JobType::Incremental)    ? core::JobType::Incremental
                        : kind == KindOf(core::JobType::Differential) ? core::JobType::Differential
                                                                      : core::JobType::Full;
        const auto jobId = NumberOf(json, "job_id", -1, INT32_MAX);
        const auto baseId = NumberOf(json, "base_id", 0, INT32_MAX);
        if (!jobId || *jobId < 0 || !baseId) return Damaged("job numbers");
        manifest.jobId = static_cast<int32_t>(*jobId);
        manifest.baseId = static_cast<int32_t>(*baseId);
        manifest.baseBackup = json.value("base_backup", "");
        if (!manifest.baseBackup.empty() && !IsBackupName(manifest.baseBackup)) {
            return Damaged("no base backup's name");
        }
        for (const ordered_json& name : json.value("builds_on", ordered_json::array())) {
            manifest.buildsOn.push_back(name.get<std::string>());
            if (!IsBackupName(manifest.buildsOn.back())) return Damaged("no backup's name");
        }
        manifest.start = SecondsOf(json.value("start", ""));
        manifest.end = SecondsOf(json.value("end", ""));
        manifest.host = json.value("host", "");
        const ordered_json& volumes = json.at("volumes");
        const ordered_json& media = json.at("media");
        if (!volumes.is_array() || volumes.size() > kMaxVolumes || !media.is_array() ||
            media.size() > kMaxMedia) {
            return Damaged("lists");
        }
        for (const ordered_json& volume : volumes) {
            manifest.volumes.push_back({GetBytes(volume, "name"), GetBytes(volume, "mount"),
                                        volume.value("file_system", "")});
        }
        for (const ordered_json& rule : json.value("selection", ordered_json::array()))
            manifest.selection.push_back(GetBytes(rule, "rule"));
        manifest.compressor = json.value("compressor", "");
        manifest.stockCommand = json.value("unpack_with", "");
        manifest.isProtected = json.value("protected", false);
        manifest.discs = json.value("discs", 1);
        if (manifest.discs < 1 || manifest.discs > kMaxDiscs) return Damaged("discs");
        for (const ordered_json& medium : media) {
            const auto size = NumberOf(medium, "size", -1);
            const auto disc = NumberOf(medium, "disc", manifest.discs, manifest.discs);
            if (!size || !disc) return Damaged("a medium");
            ManifestMedium read{medium.at("file").get<std::string>(), *size,
                                medium.value("sha256", ""), static_cast<int>(*disc)};
            if (!IsPlainName(read.file) || read.size < 0 || read.disc < 1) {
                return Damaged("a medium");
            }
            manifest.media.push_back(std::move(read));
        }
        for (const auto& [key, into] : {std::pair("entries", &manifest.entries),
                                        {"files", &manifest.files},
                                        {"bytes", &manifest.bytes},
                                        {"errors", &manifest.errors}}) {
            const auto number = NumberOf(json, key, 0);
            if (!number) return Damaged(key);
            *into = *number;
        }
        return manifest;
    } catch (const ordered_json::exception& problem) {
        return Damaged(problem.what());
    }
}

}  // namespace server::archive
