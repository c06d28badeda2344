// Protected backups by the real engine: opened by us, by the stock programs, and by nobody else.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "core/protocol/Texts.h"
#include "server/archive/AgeStream.h"
#include "server/archive/Format.h"
#include "server/archive/Readme.h"
#include "server/engine/AddOns.h"
#include "server/queue/JobDescription.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
namespace text = core::text;
using core::JobEnd;
using core::LineType;

constexpr std::string_view kPassword = "open sesame 4711";
constexpr int kQuick = 10;

std::string Content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class EngineProtected : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        auto made = archive::MakeProtection(archive::Secret(kPassword), kQuick);
        ASSERT_TRUE(made);
        fProtection = *made;
        auto identity = archive::OpenKeyFile(fProtection.keyFile, archive::Secret(kPassword));
        ASSERT_TRUE(identity);
        fIdentity = std::make_shared<archive::AgeIdentity>(std::move(*identity));
        fHouse.packer = GetParam();
        fTo = fHouse.root + "/restored";
        fs::create_directory(fTo);
    }
    JobOrder ProtectedOrder() const {
        JobOrder order = fHouse.Order();
        BMessage start;
        start.Add("passonoff", int32_t{1});
        order.description.Add("start_info", start);
        description::SetProtection(order.description, fProtection);
        return order;
    }
    std::string Save() {
        const JobOrder order = ProtectedOrder();
        EXPECT_EQ(fHouse.Run(order), JobEnd::Good) << fHouse.events.All();
        return fHouse.catalogues->FindByJob(order.id).value_or(BackupInfo()).name;
    }
    // Of whole backups; those in `opened` have their key.
    JobEnd Read(core::JobType type, const std::vector<std::string>& backups,
                const std::vector<std::string>& opened) {
        JobOrder order;
        order.id = 100;
        order.type = type;
        BMessage selection, settings;
        for (const std::string& backup : backups) {
            selection.Add("SELECTION", "INCLUDE /" + backup + "/Source/*");
            selection.Add("source", "REDIREC /" + backup + "/Source/*");
            selection.Add("redirect", fTo);
        }
        settings.Add("createemptydirs", int32_t{1});
        settings.Add("divert", int32_t{1});
        order.description.Add("selection", selection);
        order.description.Add("restore", settings);
        for (const std::string& backup : opened)
            order.keys[backup] = fIdentity;
        fHouse.events.lines.clear();
        return fHouse.Run(order);
    }
    std::string Ending() const { return ".tar" + fHouse.Ending(); }
    std::string Medium(const std::string& backup, int number = 1) const {
        return fHouse.target + "/" + backup + "/000" + std::to_string(number) + Ending() + ".age";
    }

    EngineHouse fHouse;
    archive::Protection fProtection;
    std::shared_ptr<const archive::AgeIdentity> fIdentity;
    std::string fTo;
};

TEST_P(EngineProtected, IsSplitSealedCheckedAndRestored) {
    MakeNastyTree(fHouse.source);
    WriteWhole(fHouse.source + "/noise", NoiseBytes(40'000'000));
    fHouse.volume.Set("mediasize", archive::kMinMediaSize);
    const auto before = DescribeTree(fHouse.source);
    const std::string backup = Save();
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "protected by a password"));

    // Every file beside the manifest is sealed, or what the password opens.
    std::set<std::string> files;
    for (const auto& entry : fs::directory_iterator(fHouse.target + "/" + backup)) {
        files.insert(entry.path().filename());
        EXPECT_LE(entry.file_size(), static_cast<size_t>(archive::kMinMediaSize));
        if (entry.path().extension() == ".age") {
            EXPECT_EQ(Content(entry.path()).substr(0, 22), "age-encryption.org/v1\n");
        }
    }
    size_t media = 0;
    while (files.erase(fs::path(Medium(backup, static_cast<int>(media) + 1)).filename()) > 0)
        ++media;
    EXPECT_GE(media, 3u);
    EXPECT_EQ(files, (std::set<std::string>{"SHA256SUMS", "backup.json", "catalogue.db.zst.age",
                                            "key.age"}));
    EXPECT_EQ(EngineHouse::Shell("cd " + fHouse.target + "/" + backup +
                                 " && sha256sum --quiet -c SHA256SUMS && wc -l < SHA256SUMS"),
              std::to_string(media + 3) + "\n");
    const std::string json = Content(fHouse.target + "/" + backup + "/backup.json");
    EXPECT_NE(json.find("\"protected\": true"), std::string::npos) << json;

    EXPECT_EQ(Read(core::JobType::Verify, {backup}, {backup}), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Read(core::JobType::Restore, {backup}, {backup}), JobEnd::Good)
        << fHouse.events.All();
    EXPECT_EQ(Differences(before, DescribeTree(fTo)), "");

    // Neither the password nor the key it opens lies anywhere, in no way of writing it.
    const auto key = fIdentity->Key().Text();
    const archive::Secret words = fIdentity->Text();
    for (const std::string& folder : {fHouse.target, fHouse.root + "/catalogues"}) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file()) continue;
            const std::string bytes = Content(entry.path());
            EXPECT_EQ(bytes.find(kPassword), std::string::npos) << entry.path();
            EXPECT_EQ(bytes.find(key), std::string::npos) << entry.path();
            EXPECT_EQ(bytes.find(words.Text()), std::string::npos) << entry.path();
        }
    }
    // What is known of it outlives the server.
    CatalogueStore again(fHouse.root + "/catalogues");
    ASSERT_TRUE(again.Open());
    const auto info = again.Find(backup);
    ASSERT_TRUE(info && info->isProtected);
    EXPECT_EQ(info->protection.recipient, fProtection.recipient);
    EXPECT_TRUE(info->protection.keyFile == fProtection.keyFile);
}

TEST_P(EngineProtected, WithoutItsPasswordItIsLeftOutAndTheOthersGoOn) {
    WriteWhole(fHouse.source + "/secret", "secret");
    const std::string locked = Save();
    fs::remove(fHouse.source + "/secret");
    WriteWhole(fHouse.source + "/open", "open");
    ASSERT_EQ(fHouse.Run(), JobEnd::Good);
    const std::string open = fHouse.Folders().back();
    ASSERT_NE(open, locked);

    EXPECT_EQ(Read(core::JobType::Restore, {locked, open}, {}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kPasswordProblem));
    EXPECT_FALSE(fs::exists(fTo + "/secret"));
    EXPECT_TRUE(fs::exists(fTo + "/open"));
    EXPECT_EQ(Read(core::JobType::Verify, {locked, open}, {}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kPasswordProblem));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Totals, "Files checked:\t\t1"));
    WriteWhole(fHouse.source + "/secret", "SECRET");
    EXPECT_EQ(Read(core::JobType::Compare, {locked}, {}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kPasswordProblem));
    EXPECT_FALSE(fHouse.events.Has(LineType::Error, text::kFileDataDiffers));
    EXPECT_EQ(Read(core::JobType::Compare, {locked}, {locked}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kFileDataDiffers)) << fHouse.events.All();
    // Another backup's key.
    fIdentity = std::make_shared<archive::AgeIdentity>(archive::AgeIdentity::Generate());
    EXPECT_EQ(Read(core::JobType::Restore, {locked}, {locked}), JobEnd::Errors);
    EXPECT_FALSE(fs::exists(fTo + "/secret"));
}

TEST_P(EngineProtected, DamageIsNamedAndCostsOnlyWhatItHits) {
    WriteWhole(fHouse.source + "/a", NoiseBytes(3'900'000, 1));
    WriteWhole(fHouse.source + "/b", NoiseBytes(3'900'000, 2));
    WriteWhole(fHouse.source + "/c", NoiseBytes(3'900'000, 3));
    const std::string backup = Save();
    EngineHouse::Shell("printf X | dd of=" + Medium(backup) +
                       " bs=1 seek=6000000 conv=notrunc 2>/dev/null");
    EXPECT_EQ(Read(core::JobType::Verify, {backup}, {backup}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "checksum of '0001" + Ending() + ".age'"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "/Source/b")) << fHouse.events.All();
    EXPECT_FALSE(fHouse.events.HasText(LineType::Error, "/Source/c"));
    EXPECT_EQ(Read(core::JobType::Restore, {backup}, {backup}), JobEnd::Errors);
    EXPECT_TRUE(Content(fTo + "/a") == NoiseBytes(3'900'000, 1));
    EXPECT_FALSE(fs::exists(fTo + "/b"));
    EXPECT_TRUE(Content(fTo + "/c") == NoiseBytes(3'900'000, 3));

    // Whoever says that the backup is not protected has put something else there.
    EngineHouse::Shell("sed -i 's/\"protected\": true/\"protected\": false/' " + fHouse.target +
                       "/" + backup + "/backup.json");
    EXPECT_EQ(Read(core::JobType::Restore, {backup}, {backup}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupHeaderUnreadable));
}

TEST_P(EngineProtected, ADestinationThatFillsUpOnTheWayIsWaitedFor) {
    WriteWhole(fHouse.source + "/noise", NoiseBytes(9'000'000));
    auto image = LoadDestination(fHouse.config.addOnFolder, "KTImage");
    ASSERT_TRUE(image);
    (*image)->SetSettings(fHouse.volume);
    FaultyVolume volume(**image);
    volume.removable = true;
    volume.room = 5'000'000;
    volume.onSpace = [&] {
        if (fHouse.events.Has(LineType::Heading, text::kMediumFull)) volume.room = 100'000'000;
    };
    ASSERT_EQ(fHouse.RunTo(volume, ProtectedOrder()), JobEnd::Good) << fHouse.events.All();
    const std::string backup = fHouse.Folders().at(0);
    EXPECT_EQ(Read(core::JobType::Verify, {backup}, {backup}), JobEnd::Good) << fHouse.events.All();

    JobOrder damaged = ProtectedOrder();
    damaged.description.Set("protection", BMessage());
    EXPECT_EQ(fHouse.Run(damaged), JobEnd::Errors);
    EXPECT_EQ(fHouse.Folders().size(), 1u);
}

TEST_P(EngineProtected, ReadmeIsTrueWordByWord) {
    fs::create_directories(fHouse.source + "/home/anna");
    WriteWhole(fHouse.source + "/home/anna/letter.txt", "Dear reader");
    WriteWhole(fHouse.source + "/noise", NoiseBytes(20'000'000));
    fHouse.volume.Set("mediasize", archive::kMinMediaSize);
    const std::string split = fHouse.target + "/" + Save();
    const std::string readme(archive::ReadmeText());
    const size_t begin = readme.find("2. Is it protected"), end = readme.find("\n3. What is in it");
    ASSERT_LT(begin, end);
    const auto commands = [&](const std::string& section) {
        std::vector<std::string> found;
        for (size_t at = 0; (at = section.find("\n    $ ", at)) != std::string::npos; ++at)
            found.push_back(section.substr(at + 7, section.find('\n', at + 7) - at - 7));
        return found;
    };
    const auto protection = commands(readme.substr(begin, end - begin));
    ASSERT_EQ(protection.size(), 13u);
    // As a reader types them, the password when it is asked for.
    const auto type = [&](const std::string& folder, const std::vector<std::string>& lines) {
        std::string script = "set -e -o pipefail\ncd " + folder + "\n";
        for (const std::string& line : lines)
            script += line + "\n";
        WriteWhole(fHouse.root + "/script", script);
        return EngineHouse::Shell("python3 " VELMORA_SOURCE_DIR
                                  "/tests/support/type_password.py '" +
                                  std::string(kPassword) + "' 'bash " + fHouse.root + "/script'");
    };
    const auto line = [&](const std::vector<std::string>& lines, const std::string& part) {
        for (const std::string& found : lines)
            if (found.find(part) != std::string::npos) return found;
        ADD_FAILURE() << part;
        return std::string();
    };
    const auto expectRestored = [&](const char* way) {
        EXPECT_EQ(TreeDifferences(fHouse.source, fHouse.target + "/restored/Source"), "") << way;
        EngineHouse::Shell("rm -rf " + fHouse.target + "/restored");
    };

    // A copy that is not protected, and what the following sections say about it.
    std::vector<std::string> steps(protection.begin(), protection.begin() + 5);
    const auto later = commands(readme.substr(end));
    steps.push_back(line(later, "mkdir -p ../restored"));
    steps.push_back(line(later, "*" + Ending() + ") | " +
                                    (fHouse.Ending().empty() ? "" : fHouse.Unpacker() + " | ") +
                                    "tar -xpf"));
    steps.push_back(line(later, "zstd -dqf catalogue"));
    EXPECT_EQ(type(split, steps), "");
    EXPECT_FALSE(fs::exists(fHouse.target + "/opened/key.txt"));
    EXPECT_TRUE(fs::exists(fHouse.target + "/opened/0002" + Ending()));
    EXPECT_TRUE(fs::exists(fHouse.target + "/catalogue.db"));
    expectRestored("copy");

    // All at once.
    steps.assign(protection.begin() + 5, protection.begin() + 7);
    steps.push_back(line(protection, "*" + Ending() + ".age); do age"));
    steps.push_back(protection[11]);
    EXPECT_EQ(type(split, steps), "");
    EXPECT_FALSE(fs::exists(fHouse.target + "/key.txt"));
    expectRestored("at once");

    // A single medium; the example has one ending, as there is only one line.
    if (fHouse.packer != "KTZstd") return;
    fHouse.volume.Set("mediasize", int64_t{0});
    const std::string single = fHouse.target + "/" + Save();
    EXPECT_EQ(type(single, {protection[5], protection[12]}), "");
    expectRestored("single");
}

INSTANTIATE_TEST_SUITE_P(All, EngineProtected,
                         testing::Values("KTNone", "KTZstd", "KTLz4", "KTXz"));

}  // namespace
}  // namespace server
