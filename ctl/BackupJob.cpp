#include "ctl/BackupJob.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "core/protocol/Codes.h"
#include "core/selection/KTSelection.h"
#include "ctl/Say.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

namespace {

std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&::free)> real(::realpath(path.c_str(), nullptr), &::free);
    return real ? real.get() : "";
}

bool IsAtOrBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

struct Source {
    std::string disk;  // absolute, links on the way followed
    std::string rule;  // "/Volume/path"
    bool directory = false;
    bool link = false;
};

kit::Result<Source> Locate(const std::string& path, const std::vector<BVolume>& volumes) {
    using kit::Error;
    using kit::ErrorKind;
    Source source;
    const std::filesystem::path typed(path);
    const std::string leaf = typed.filename().string();
    // The last part is taken as it is, so that a link stays one; "dir/", "." and ".." name what is
    // there.
    if (leaf.empty() || leaf == "." || leaf == "..") {
        source.disk = RealPath(path);
    } else {
        const std::string parent =
            RealPath(typed.has_parent_path() ? typed.parent_path().string() : ".");
        if (!parent.empty()) source.disk = (parent == "/" ? "" : parent) + "/" + leaf;
    }
    struct stat status {};
    if (source.disk.empty() || ::lstat(source.disk.c_str(), &status) != 0) {
        return Error::Make(ErrorKind::NotFound, path, "is not there");
    }
    source.directory = S_ISDIR(status.st_mode);
    source.link = S_ISLNK(status.st_mode);
    auto rule = BVolumeRoster::FromDisk(volumes, source.disk);
    if (!rule) return Error::Make(ErrorKind::Invalid, path, "is on no volume that can be saved");
    source.rule = *rule;
    while (source.rule.ends_with('/'))
        source.rule.pop_back();
    return source;
}

}  // namespace

kit::Result<Sources> MapSources(const std::vector<std::string>& paths,
                                const std::vector<BVolume>& volumes) {
    const auto boot = std::find_if(volumes.begin(), volumes.end(),
                                   [](const BVolume& volume) { return volume.isBoot; });
    const std::string var = boot == volumes.end() ? "" : "/" + boot->name + "/var";
    Sources sources;
    std::vector<std::string> belowVar;
    for (const auto& path : paths) {
        auto source = Locate(path, volumes);
        if (!source) return source.error();
        const std::string rule = "INCLUDE " + source->rule + (source->directory ? "/*" : "");
        if (!var.empty() && IsAtOrBelow(source->rule, var)) {
            belowVar.push_back(rule);
        } else {
            sources.rules.push_back(rule);
        }
        if (source->link) {
            sources.notes.push_back(core::FormatTextOf(kMoreCtlIsLink, Printable(path)));
        }
        for (const auto& volume : volumes) {
            if (source->directory && volume.mountPoint != source->disk &&
                IsAtOrBelow(volume.mountPoint, source->disk == "/" ? "" : source->disk)) {
                sources.notes.push_back(core::FormatTextOf(
                    kMoreCtlOtherVolume, Printable(volume.mountPoint), Printable(source->disk)));
            }
        }
    }
    // Variable data is left out as in the window, but for what was asked for by name.
    if (!var.empty() && !sources.rules.empty()) sources.rules.push_back("EXCLUDE " + var + "/*");
    if (!belowVar.empty()) {
        sources.notes.push_back(core::TextOf(kMoreCtlVarNamed));
    }
    sources.rules.insert(sources.rules.end(), belowVar.begin(), belowVar.end());
    return sources;
}

kit::Result<Compression> ParseCompression(const std::string& text) {
    struct Kind {
        std::string_view name;
        const char* addon;
        int32_t least, most, usual;  // levels
    };
    constexpr Kind kKinds[] = {{"none", "KTNone", 0, -1, 0},
                               {"lz4", "KTLz4", 1, 12, 1},
                               {"zstd", "KTZstd", 1, 19, 3},
                               {"xz", "KTXz", 0, 9, 3}};
    const size_t colon = text.find(':');
    for (const Kind& kind : kKinds) {
        if (std::string_view(text).substr(0, colon) != kind.name) continue;
        if (colon == std::string::npos) return Compression{kind.addon, kind.usual};
        int32_t level = 0;
        const char* end = text.data() + text.size();
        const auto [stop, problem] = std::from_chars(text.data() + colon + 1, end, level);
        if (problem == std::errc() && stop == end && level >= kind.least && level <= kind.most) {
            return Compression{kind.addon, level};
        }
    }
    return kit::Error::Make(kit::ErrorKind::Invalid, text,
                            "is not none, lz4:1 to lz4:12, zstd:1 to zstd:19 or xz:0 to xz:9");
}

std::string AbsoluteTarget(const std::string& path) {
    if (std::string real = RealPath(path); !real.empty()) return real;
    std::error_code problem;
    const auto absolute = std::filesystem::absolute(path, problem);
    std::string target = problem ? path : absolute.lexically_normal().string();
    while (target.size() > 1 && target.ends_with('/'))
        target.pop_back();
    return target;
}

BMessage BackupJob(const Sources& sources, const std::string& target,
                   const Compression& compression, const std::string& title, bool onHold) {
    BMessage selection;
    for (const auto& rule : sources.rules)
        selection.Add(core::kSelectionField, rule);
    BMessage volume;
    volume.Add("addon", "KTImage");
    volume.Add("path", target);
    volume.Add("mediasize", int64_t{0});
    volume.Add("overwrite", int32_t{0});
    BMessage packer;
    packer.Add("addon", compression.addon);
    packer.Add("level", compression.level);
    BMessage info;
    info.Add("title", title);
    info.Add("passonoff", int32_t{0});
    info.Add("submitonhold", int32_t{onHold});

    BMessage job(core::code::kSubmitJob);
    job.Add("job_type", static_cast<int32_t>(core::JobType::Full));
    job.Add("selection", selection);
    job.Add("addon", "KTImage");
    job.Add("volume", volume);
    job.Add("bak_addonpacker", compression.addon);
    job.Add("bak_packer", packer);
    job.Add("start_info", info);
    return job;
}

void BuildOn(BMessage& job, core::JobType type, int32_t setId) {
    job.Set("job_type", static_cast<int32_t>(type));
    job.Remove("selection");
    job.Set("base_id", setId);
}

void Protect(BMessage& job, const std::string& password) {
    BMessage info = job.Get("start_info", BMessage());
    info.Set("passonoff", int32_t{1});
    info.Set("password", password);
    job.Set("start_info", info);
}

}  // namespace ctl
