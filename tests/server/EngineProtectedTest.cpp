// Protected backups by the real engine: opened by us, by the stock programs, and by nobody else.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "core/protocol/Texts.h"
#include "server/archive/AgeStream.h"
#include "server/archive/Format.h"
#include "server/archive/Readme.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
namespace text = core::text;
using core::JobEnd;
using core::LineType;

constexpr std::string_view kPassword = "open sesame 4711";

class EngineProtected : public testing::TestWithParam<const char*> {
protected:
    EngineProtected() {
        fHouse.Protect(kPassword);
        fHouse.packer = GetParam();
    }
    std::string Save() {
        std::string name = fHouse.Save();
        EXPECT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
        return name;
    }
    // Of whole backups; those in `opened` have their key.
    JobEnd Read(core::JobType type, const std::vector<std::string>& backups,
                const std::vector<std::string>& opened) {
        JobOrder order = fHouse.ReadOrder(type, backups[0], fTo);
        BMessage selection = order.description.Get("selection", BMessage());
        for (size_t i = 1; i < backups.size(); ++i) {
            selection.Add("SELECTION", "INCLUDE /" + backups[i] + "/Source/*");
            selection.Add("source", "REDIREC /" + backups[i] + "/Source/*");
            selection.Add("redirect", fTo);
        }
        order.description.Set("selection", selection);
        order.keys.clear();
        for (const std::string& backup : opened)
            order.keys[backup] = fHouse.identity;
        return fHouse.Run(order);
    }
    std::string Ending() const { return ".tar" + fHouse.Ending(); }
    std::string Medium(const std::string& backup, int number = 1) const {
        return fHouse.target + "/" + backup + "/000" + std::to_string(number) + Ending() + ".age";
    }

    EngineHouse fHouse;
    const std::string fTo = fHouse.NewFolder();
};

INSTANTIATE_TEST_SUITE_P(All, EngineProtected, testing::Values("KTNone", "KTZstd"));

TEST_P(EngineProtected, IsSplitSealedCheckedAndRestored) {
    MakeNastyTree(fHouse.source);
    WriteWhole(fHouse.source + "/noise", NoiseBytes(27'000'000));
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
            EXPECT_EQ(ReadWhole(entry.path()).substr(0, 22), "age-encryption.org/v1\n");
        }
    }
    size_t media = 0;
    while (files.erase(fs::path(Medium(backup, static_cast<int>(media) + 1)).filename()) > 0)
        ++media;
    EXPECT_GE(media, 3u);
    EXPECT_EQ(files, (std::set<std::string>{"SHA256SUMS", "backup.json", "catalogue.db.zst.age",
                                            "key.age"}));
    EXPECT_EQ(Shell("cd " + fHouse.target + "/" + backup +
                    " && sha256sum --quiet -c SHA256SUMS && wc -l < SHA256SUMS"),
              std::to_string(media + 3) + "\n");
    const std::string json = ReadWhole(fHouse.target + "/" + backup + "/backup.json");
    EXPECT_NE(json.find("\"protected\": true"), std::string::npos) << json;

    EXPECT_EQ(Read(core::JobType::Verify, {backup}, {backup}), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Read(core::JobType::Restore, {backup}, {backup}), JobEnd::Good)
        << fHouse.events.All();
    EXPECT_EQ(Differences(before, DescribeTree(fTo)), "");

    // Neither the password nor the key it opens lies anywhere, in no way of writing it.
    const auto key = fHouse.identity->Key().Text();
    const archive::Secret words = fHouse.identity->Text();
    for (const std::string& folder : {fHouse.target, fHouse.root + "/catalogues"}) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file()) continue;
            const std::string bytes = ReadWhole(entry.path());
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
    EXPECT_EQ(info->protection.recipient, fHouse.protection->recipient);
    EXPECT_TRUE(info->protection.keyFile == fHouse.protection->keyFile);
}

TEST_P(EngineProtected, WithoutItsPasswordItIsLeftOutAndTheOthersGoOn) {
    WriteWhole(fHouse.source + "/secret", "secret");
    const std::string locked = Save();
    fs::remove(fHouse.source + "/secret");
    WriteWhole(fHouse.source + "/open", "open");
    fHouse.protection.reset();
    const std::string open = Save();

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
    fHouse.identity = std::make_shared<archive::AgeIdentity>(archive::AgeIdentity::Generate());
    EXPECT_EQ(Read(core::JobType::Restore, {locked}, {locked}), JobEnd::Errors);
    EXPECT_FALSE(fs::exists(fTo + "/secret"));
}

TEST_P(EngineProtected, DamageIsNamedAndCostsOnlyWhatItHits) {
    WriteWhole(fHouse.source + "/a", NoiseBytes(3'900'000, 1));
    WriteWhole(fHouse.source + "/b", NoiseBytes(3'900'000, 2));
    WriteWhole(fHouse.source + "/c", NoiseBytes(3'900'000, 3));
    const std::string backup = Save();
    Damage(Medium(backup), 6'000'000);
    EXPECT_EQ(Read(core::JobType::Verify, {backup}, {backup}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "checksum of '0001" + Ending() + ".age'"));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "/Source/b")) << fHouse.events.All();
    EXPECT_FALSE(fHouse.events.HasText(LineType::Error, "/Source/c"));
    EXPECT_EQ(Read(core::JobType::Restore, {backup}, {backup}), JobEnd::Errors);
    EXPECT_TRUE(ReadWhole(fTo + "/a") == NoiseBytes(3'900'000, 1));
    EXPECT_FALSE(fs::exists(fTo + "/b"));
    EXPECT_TRUE(ReadWhole(fTo + "/c") == NoiseBytes(3'900'000, 3));

    // Whoever says that the backup is not protected has put something else there.
    Shell("sed -i 's/\"protected\": true/\"protected\": false/' " + fHouse.target + "/" + backup +
          "/backup.json");
    EXPECT_EQ(Read(core::JobType::Restore, {backup}, {backup}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupHeaderUnreadable));

    JobOrder damaged = fHouse.Order();
    damaged.description.Set("protection", BMessage());
    EXPECT_EQ(fHouse.Run(damaged), JobEnd::Errors);
    EXPECT_EQ(fHouse.Folders().size(), 1u);
}

// The instructions say something else for each.
class EngineProtectedByHand : public EngineProtected {};
INSTANTIATE_TEST_SUITE_P(All, EngineProtectedByHand,
                         testing::Values("KTNone", "KTZstd", "KTLz4", "KTXz"));

TEST_P(EngineProtectedByHand, ReadmeIsTrueWordByWord) {
    fs::create_directories(fHouse.source + "/home/anna");
    WriteWhole(fHouse.source + "/home/anna/letter.txt", "Dear reader");
    WriteWhole(fHouse.source + "/noise", NoiseBytes(17'500'000));
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
        return Shell("python3 " VELMORA_SOURCE_DIR "/tests/support/type_password.py '" +
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
        Shell("rm -rf " + fHouse.target + "/restored");
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

}  // namespace
}  // namespace server
