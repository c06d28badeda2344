#include "core/files/HeaderFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "kit/storage/NodeAttributes.h"
#include "tests/TemporaryFolder.h"

using core::HeaderLoad;
using core::HeaderSave;

namespace {

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

size_t EntriesIn(const std::string& folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

// The example of docs/formats.md, byte by byte.
TEST(HeaderFile, HundredBytesThenTheMessage) {
    using namespace std::string_literals;
    TemporaryFolder folder;
    const std::string path = folder / "selection";
    BMessage message;
    message.Add("SELECTION", "INCLUDE /System/home/*");
    message.Add("SELECTION", "EXCLUDE /System/home/tmp/*");
    ASSERT_EQ(
        core::SaveHeaderFile(path, core::kSelectionMagic, message, core::kBackupSelectionType),
        HeaderSave::Good);
    EXPECT_EQ(Content(path), "KTSELECT"s + std::string(92, '\0') +
                                 "VMS1\0\0\0\0\x62\0\0\0\0\0\0\0\x01\0\0\0"s
                                 "RTSC\x09SELECTION\x02\0\0\0\0\0\0\0\x16\0\0\0\x1a\0\0\0"s
                                 "INCLUDE /System/home/*EXCLUDE /System/home/tmp/*"s);
    EXPECT_EQ(std::filesystem::status(path).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    if (kit::SupportsAttributes(folder.Path())) {
        EXPECT_EQ(kit::MimeType(path), "application/x-vnd.velmoraware-backupselection");
    }
    EXPECT_EQ(EntriesIn(folder.Path()), 1U);

    BMessage back(7);
    EXPECT_EQ(core::LoadHeaderFile(path, core::kSelectionMagic, &back), HeaderLoad::Good);
    EXPECT_EQ(back, message);
}

TEST(HeaderFile, RefusesWhatItIsNot) {
    TemporaryFolder folder;
    BMessage message(1);
    message.Add("kept", int32_t{1});
    const BMessage before = message;
    const auto load = [&](const std::string& path) {
        const auto result = core::LoadHeaderFile(path, core::kBackupJobMagic, &message);
        EXPECT_EQ(message, before);
        return static_cast<int>(result);
    };
    const std::string header = "KTBAKJOB" + std::string(92, '\0');
    EXPECT_EQ(load(folder / "missing"), 1);
    EXPECT_EQ(load(folder.Path()), 1);
    EXPECT_EQ(load(folder.Write("short", header.substr(0, 99))), 2);
    EXPECT_EQ(load(folder.Write("empty", "")), 2);
    EXPECT_EQ(load(folder.Write("other", "KTSELECT" + header.substr(8))), 3);
    EXPECT_EQ(load(folder.Write("bare", header)), 4);
    EXPECT_EQ(load(folder.Write("rubbish", header + "VMS1 and so on")), 4);
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(load(folder / "fifo"), 1) << "and does not hang";
    EXPECT_EQ(core::MagicOf(folder / "fifo"), "");
    EXPECT_EQ(core::MagicOf(folder.Write("tiny", "KTBAK")), "");
    std::filesystem::resize_file(folder.Write("huge", header), uintmax_t{1} << 33);
    EXPECT_EQ(load(folder / "huge"), 4);

    // Only eight characters of the header count.
    BMessage body(9);
    const Bytes flat = body.Flatten();
    folder.Write("full header",
                 "KTBAKJOB" + std::string(92, 'x') + std::string(flat.begin(), flat.end()));
    EXPECT_EQ(core::LoadHeaderFile(folder / "full header", core::kBackupJobMagic, &message),
              HeaderLoad::Good);
}

TEST(HeaderFile, NeverWritesPasswords) {
    BMessage inner;
    inner.Add("password", "secret-words");
    inner.Add("title", "Daily");
    BMessage start;
    start.Add("deeper", inner);
    start.Add("password", int32_t{5});
    BMessage job;
    job.Add("start_info", inner);
    job.Add("start_info", start);
    job.Add("password", "secret-words");

    TemporaryFolder folder;
    ASSERT_EQ(core::SaveHeaderFile(folder / "job", core::kBackupJobMagic, job), HeaderSave::Good);
    EXPECT_EQ(Content(folder / "job").find("password"), std::string::npos);
    EXPECT_EQ(Content(folder / "job").find("secret-words"), std::string::npos);
    BMessage back;
    ASSERT_EQ(core::LoadHeaderFile(folder / "job", core::kBackupJobMagic, &back), HeaderLoad::Good);
    EXPECT_EQ(back.Get("start_info", BMessage()).Get<std::string>("title", ""), "Daily");
    EXPECT_TRUE(job.Has("password")) << "the message in memory is left alone";
}

TEST(HeaderFile, ReplacesWholeOrNotAtAll) {
    TemporaryFolder folder;
    const BMessage message(3);
    EXPECT_EQ(core::SaveHeaderFile(folder / "no/such/folder", core::kSettingsMagic, message),
              HeaderSave::CannotCreate);
    EXPECT_EQ(core::SaveHeaderFile(folder.Path(), core::kSettingsMagic, message),
              HeaderSave::CannotCreate);
    EXPECT_EQ(core::SaveHeaderFile("/dev/null", core::kSettingsMagic, message),
              HeaderSave::CannotCreate);
    ASSERT_TRUE(std::filesystem::is_character_file("/dev/null"));

    // A link stays a link, and its target gets the new content.
    folder.Write("target", "old");
    std::filesystem::create_symlink("target", folder / "link");
    ASSERT_EQ(core::SaveHeaderFile(folder / "link", core::kSettingsMagic, message),
              HeaderSave::Good);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
    EXPECT_EQ(core::MagicOf(folder / "target"), "KTBACKUP");
    EXPECT_EQ(EntriesIn(folder.Path()), 2U);
}
