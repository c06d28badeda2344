#include "tests/server/EngineHouse.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "core/locale/TextTable.h"
#include "server/engine/AddOns.h"
#include "server/engine/BackupJob.h"
#include "server/engine/JobReport.h"
#include "server/queue/JobDescription.h"

namespace server {

namespace {

// The source is the only volume there is.
class OneMount : public kit::MountSource {
public:
    explicit OneMount(std::string path) : fPath(std::move(path)) {}
    std::vector<Mount> Mounts() override {
        Mount mount;
        mount.mountPoint = fPath;
        mount.root = "/";
        mount.fileSystem = "ext4";
        mount.source = "/dev/source";
        mount.device = 1;
        return {mount};
    }
    std::string Label(const Mount&) override { return "Source"; }
    bool IsRemovable(const Mount&) override { return false; }
    std::optional<Space> SpaceOf(const Mount&) override { return Space{}; }

private:
    std::string fPath;
};

}  // namespace

// --- Recorder -----------------------------------------------------------------------------------

void Recorder::Line(core::LineType type, int32_t textId, KTReportLine arguments) {
    const char* format = core::kTextTable.at(static_cast<size_t>(textId));
    const Said said{type, textId, arguments.Render(format, 20'000)};
    {
        const std::lock_guard lock(fMutex);
        lines.push_back(said);
    }
    if (onLine) onLine(said);
}

void Recorder::SetProgress(const Progress& told) {
    progress.push_back(told);
    if (onProgress) onProgress(told);
}

bool Recorder::Has(core::LineType type, int32_t textId) const {
    const std::lock_guard lock(fMutex);
    return std::any_of(lines.begin(), lines.end(),
                       [&](const Said& s) { return s.type == type && s.textId == textId; });
}

bool Recorder::HasText(core::LineType type, const std::string& part) const {
    const std::lock_guard lock(fMutex);
    return std::any_of(lines.begin(), lines.end(), [&](const Said& s) {
        return s.type == type && s.text.find(part) != std::string::npos;
    });
}

std::vector<std::string> Recorder::Texts(core::LineType type) const {
    std::vector<std::string> texts;
    for (const Said& said : lines) {
        if (said.type == type) texts.push_back(said.text);
    }
    return texts;
}

std::string Recorder::All() const {
    std::string all;
    for (const Said& said : lines) {
        all += std::to_string(static_cast<int>(said.type)) + ": " + said.text + "\n";
    }
    return all;
}

void Recorder::Clear() {
    const std::lock_guard lock(fMutex);
    lines.clear();
    progress.clear();
}

// --- EngineHouse --------------------------------------------------------------------------------

EngineHouse::EngineHouse() {
    std::string name = std::filesystem::temp_directory_path() / "velmora-engine-XXXXXX";
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    root = name;
    source = root + "/source";
    target = root + "/target";
    std::filesystem::create_directories(source);
    std::filesystem::create_directories(target);
    catalogues = std::make_unique<CatalogueStore>(root + "/catalogues");
    if (!catalogues->Open()) throw std::runtime_error("no catalogues");
    config.addOnFolder = VELMORA_ADDONS;
    config.roster = BVolumeRoster(std::make_shared<OneMount>(source));
    volume.Add("path", target);
}

EngineHouse::~EngineHouse() {
    Shell("rm -rf " + root);
}

JobOrder EngineHouse::Order(const std::vector<std::string>& rules) const {
    JobOrder order;
    order.id = fNextJob;
    order.title = "A test";
    BMessage selection;
    for (const std::string& rule : rules)
        selection.Add("SELECTION", rule);
    order.description.Add("selection", selection);
    order.description.Add("addon", "KTImage");
    order.description.Add("volume", volume);
    order.description.Add("bak_addonpacker", packer);
    BMessage quick;  // how well it packs is tested with the compressors
    quick.Add("level", int32_t{1});
    order.description.Add("bak_packer", quick);
    if (protection) {
        BMessage start;
        start.Add("passonoff", int32_t{1});
        order.description.Add("start_info", start);
        description::SetProtection(order.description, *protection);
    }
    return order;
}

JobOrder EngineHouse::NextOrder(core::JobType type, int32_t set) const {
    JobOrder order = Order();
    order.type = type;
    order.description.Remove("selection");
    order.description.Add("base_id", set);
    return order;
}

JobOrder EngineHouse::ReadOrder(core::JobType type, const std::string& backup,
                                const std::string& to,
                                const std::vector<std::string>& rules) const {
    JobOrder order;
    order.id = 1000;
    order.type = type;
    BMessage selection, settings;
    for (const std::string& rule : rules)
        selection.Add("SELECTION", rule.substr(0, 8) + "/" + backup + rule.substr(8));
    if (!to.empty()) {
        selection.Add("source", "REDIREC /" + backup + "/Source/*");
        selection.Add("redirect", to);
    }
    settings.Add("createemptydirs", int32_t{1});
    settings.Add("divert", int32_t{1});
    order.description.Add("selection", selection);
    order.description.Add("restore", settings);
    if (identity) order.keys[backup] = identity;
    return order;
}

JobOrder EngineHouse::InsertOrder(const std::vector<std::string>& folders) {
    JobOrder order;
    order.id = 2000;
    order.type = core::JobType::Insert;
    order.description.Add("addon", "KTImage");
    order.description.Add("volume", volume);
    for (const std::string& folder : folders)
        order.description.Add("ID", folder);
    order.number = [this](int32_t wanted) { return wanted > 0 ? wanted : ++fLastNumber; };
    return order;
}

std::string EngineHouse::Save(core::JobType type, int32_t set) {
    const JobOrder order = type == core::JobType::Full ? Order() : NextOrder(type, set);
    end = Run(order);
    return catalogues->FindByJob(order.id).value_or(BackupInfo()).name;
}

std::string EngineHouse::Restored(const std::string& backup) {
    std::string to = NewFolder();
    end = Run(ReadOrder(core::JobType::Restore, backup, to));
    return to;
}

void EngineHouse::Protect(std::string_view password) {
    const archive::Secret secret(password);
    protection = *archive::MakeProtection(secret, 10);  // a work factor that takes a millisecond
    identity = std::make_shared<archive::AgeIdentity>(
        std::move(*archive::OpenKeyFile(protection->keyFile, secret)));
}

std::string EngineHouse::Ending() const {
    return packer == "KTZstd" ? ".zst" : packer == "KTLz4" ? ".lz4" : packer == "KTXz" ? ".xz" : "";
}

std::string EngineHouse::Unpacker() const {
    return packer == "KTZstd"  ? "zstd -dc"
           : packer == "KTLz4" ? "lz4 -dc"
           : packer == "KTXz"  ? "xz -dc"
                               : "cat";
}

core::JobEnd EngineHouse::Run(const JobOrder& order) {
    ++fNextJob;
    events.Clear();
    return RunJob(order, config, *catalogues, events, control);
}

core::JobEnd EngineHouse::RunTo(KTVolume& to, const JobOrder& order) {
    ++fNextJob;
    events.Clear();
    JobReport report(events);
    auto compressor = LoadCompressor(config.addOnFolder, packer);
    std::unique_ptr<BaseBackup> base;
    if (order.type != core::JobType::Full) {
        const auto set = order.description.Get<int32_t>("base_id", 0);
        base = std::move(*BaseBackup::Find(*catalogues, set, order.type));
    }
    return BackupJob(order, config, *catalogues, report, control, to, **compressor, std::move(base))
        .Run();
}

std::vector<std::string> EngineHouse::Folders() const {
    std::vector<std::string> folders;
    for (const auto& entry : std::filesystem::directory_iterator(target)) {
        if (entry.is_directory()) folders.push_back(entry.path().filename());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

void EngineHouse::Forget(const std::string& folder) {
    auto removal = catalogues->BeginRemoval(folder);
    if (!removal || !removal->Finish()) throw std::runtime_error("cannot forget " + folder);
}

void EngineHouse::ForgetAll() {
    for (const auto& backup : catalogues->Backups())
        Forget(backup.name);
}

BackupInfo EngineHouse::Known(const std::string& backup) const {
    return catalogues->Find(backup).value_or(BackupInfo());
}

archive::Manifest EngineHouse::ManifestOf(const std::string& folder) const {
    const std::string json = ReadWhole(target + "/" + folder + "/backup.json");
    auto manifest =
        archive::ReadManifest({reinterpret_cast<const uint8_t*>(json.data()), json.size()});
    return manifest ? *manifest : archive::Manifest{};
}

std::string EngineHouse::NewFolder() {
    std::string folder = root + "/folder" + std::to_string(++fLastFolder);
    std::filesystem::create_directory(folder);
    return folder;
}

std::string EngineHouse::Unpack(const std::vector<std::string>& chain) {
    const std::string into = NewFolder();
    std::string stream = "cat $(ls -v 0*.tar*)";
    if (identity) {
        WriteWhole(root + "/key.txt", identity->Text().Text());
        stream = "for file in $(ls -v 0*.tar*.age); do age -d -i " + root +
                 "/key.txt $file || exit 1; done";
    }
    for (const std::string& folder : chain) {
        const std::string failed = Shell(
            "cd " + target + "/" + folder +
            " && set -o pipefail && sha256sum --quiet -c SHA256SUMS && if [ -e gone.list ];"
            " then (cd " +
            into + " && xargs -0r rm -rf --) < gone.list; fi && " + stream + " | " + Unpacker() +
            " | tar -xpf - --warning=no-timestamp --numeric-owner --acls --xattrs"
            " --xattrs-include='*' -C " +
            into);
        if (failed.empty()) continue;
        std::fprintf(stderr, "%s\n", failed.c_str());
        return "";
    }
    return into;
}

// --- FaultyVolume -------------------------------------------------------------------------------

namespace {

class FaultyWriter : public KTVolumeWriter {
public:
    FaultyWriter(std::unique_ptr<KTVolumeWriter> writer, FaultyVolume& volume, std::string file)
        : fWriter(std::move(writer)), fVolume(volume), fFile(std::move(file)) {}
    kit::Status Write(std::span<const uint8_t> data) override {
        if (fVolume.Fails("Write:" + fFile)) return fVolume.Failure();
        // As a real one does, it takes what still fits before it says that it is full.
        const auto size = static_cast<int64_t>(data.size());
        const int64_t fits = std::min(size, fVolume.room);
        fVolume.room -= fits;
        fSize += fits;
        if (auto status = fWriter->Write(data.first(static_cast<size_t>(fits))); !status) {
            return status;
        }
        if (fits < size) return fVolume.Failure();
        return {};
    }
    kit::Status Truncate(int64_t size) override {
        fVolume.room += fSize - size;
        fSize = size;
        return fWriter->Truncate(size);
    }
    kit::Status Finish() override {
        if (fVolume.Fails("Finish:" + fFile)) return fVolume.Failure();
        return fWriter->Finish();
    }

private:
    std::unique_ptr<KTVolumeWriter> fWriter;
    FaultyVolume& fVolume;
    std::string fFile;
    int64_t fSize = 0;
};

}  // namespace

kit::Status FaultyVolume::CheckAccess() {
    if (Fails("CheckAccess")) return Failure();
    return fVolume.CheckAccess();
}

kit::Result<KTVolumeSpace> FaultyVolume::Space() {
    if (onSpace) onSpace();
    KTVolumeSpace space;
    space.capacity = 1 << 30;
    space.freeBytes = room;
    space.removable = removable;
    return space;
}

kit::Status FaultyVolume::BeginBackup(const std::string& name) {
    if (Fails("Begin")) return Failure();
    return fVolume.BeginBackup(name);
}

kit::Result<std::unique_ptr<KTVolumeWriter>> FaultyVolume::CreateFile(const std::string& name,
                                                                      const std::string& file) {
    if (Fails("Create:" + file)) return Failure();
    auto writer = fVolume.CreateFile(name, file);
    if (!writer) return writer.error();
    return std::unique_ptr<KTVolumeWriter>(new FaultyWriter(std::move(*writer), *this, file));
}

kit::Status FaultyVolume::Publish(const std::string& name) {
    if (Fails("Publish")) return Failure();
    return fVolume.Publish(name);
}

kit::Status FaultyVolume::WriteRootFile(const std::string& file, std::span<const uint8_t> data) {
    if (Fails("Root:" + file)) return Failure();
    return fVolume.WriteRootFile(file, data);
}

}  // namespace server
