#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kit/storage/AddOnImage.h"
#include "kit/storage/FileIo.h"
#include "kit/storage/NodeAttributes.h"
#include "tests/TemporaryFolder.h"

namespace fs = std::filesystem;
using kit::ErrorKind;

namespace {

Bytes BytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

size_t EntriesIn(const std::string& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

}  // namespace

TEST(FileIo, ReadFile) {
    TemporaryFolder folder;
    const std::string path = folder.Write("file", std::string(10'000, 'x'));
    EXPECT_EQ(kit::ReadFile(path, 10'000)->size(), 10'000U);
    EXPECT_EQ(kit::ReadFile(path, 9'999).error().kind, ErrorKind::TooLarge);
    EXPECT_TRUE(kit::ReadFile(folder.Write("empty", ""), 0)->empty());
    EXPECT_EQ(kit::ReadFile(folder / "missing", 10).error().kind, ErrorKind::NotFound);
    EXPECT_EQ(kit::ReadFile(folder.Path(), 10).error().kind, ErrorKind::Invalid);
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(kit::ReadFile(folder / "fifo", 10).error().kind, ErrorKind::Invalid);
    // Its size reads as 0.
    EXPECT_GT(kit::ReadFile("/proc/self/status", 64 * 1024)->size(), 100U);
    EXPECT_EQ(kit::ReadFile("/proc/self/status", 100).error().kind, ErrorKind::TooLarge);
}

TEST(FileIo, ReplacesWhole) {
    TemporaryFolder folder;
    const std::string path = folder.Write("file", "old");
    fs::permissions(path, fs::perms(0644));
    std::string seen;
    ASSERT_TRUE(kit::ReplaceFile(path, BytesOf("new"), [&](const std::string& temporary) {
                    seen = temporary;
                    EXPECT_EQ(*kit::ReadFile(path, 10), BytesOf("old"));
                    EXPECT_EQ(*kit::ReadFile(temporary, 10), BytesOf("new"));
                    return kit::Status();
                }).ok());
    EXPECT_EQ(*kit::ReadFile(path, 10), BytesOf("new"));
    EXPECT_FALSE(fs::exists(seen));
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    const std::string longName(255, 'n');
    EXPECT_TRUE(kit::ReplaceFile(folder / longName, BytesOf("x")).ok());
}

TEST(FileIo, FailureLeavesTheOldFile) {
    TemporaryFolder folder;
    const std::string path = folder.Write("file", "old");
    const auto refused = kit::ReplaceFile(path, BytesOf("new"), [](const std::string& temporary) {
        return kit::Error::Make(ErrorKind::Unsupported, temporary);
    });
    EXPECT_EQ(refused.error().kind, ErrorKind::Unsupported);
    {
        auto begun = kit::FileReplacement::Begin(path);
        ASSERT_TRUE(begun.ok());
        ASSERT_TRUE(begun->Write(BytesOf("half")).ok());
    }
    EXPECT_EQ(*kit::ReadFile(path, 10), BytesOf("old"));
    EXPECT_EQ(EntriesIn(folder.Path()), 1U);
    fs::create_directory(folder / "folder");
    EXPECT_EQ(kit::ReplaceFile(folder / "folder", {}).error().kind, ErrorKind::Invalid);
    // A full disk, as far as it can be had without one.
    struct stat status {};
    if (::stat("/dev/full", &status) == 0) {
        const kit::UniqueFd full(::open("/dev/full", O_WRONLY));
        EXPECT_EQ(kit::WriteAll(full.Get(), BytesOf("x"), "/dev/full").error().kind,
                  ErrorKind::Full);
    }
}

TEST(NodeAttributes, ReadAndWrite) {
    TemporaryFolder folder;
    const std::string path = folder.Write("file", "");
    ASSERT_TRUE(kit::SupportsAttributes(folder.Path()))
        << "the tests need a folder with attributes";
    EXPECT_EQ(EntriesIn(folder.Path()), 1U) << "the probe is gone";
    EXPECT_FALSE(kit::ReadAttribute(path, "none"));
    EXPECT_EQ(kit::AttributesSize(path, true), 0);
    ASSERT_TRUE(kit::WriteAttribute(path, "kt:language", "Deutsch").ok());
    ASSERT_TRUE(kit::WriteAttribute(path, "mime_type", std::string(3000, 'm')).ok());
    EXPECT_EQ(kit::ReadAttribute(path, "kt:language"), "Deutsch");
    EXPECT_EQ(kit::ReadAttribute(path, "kt:language", 3), "Deu");
    EXPECT_EQ(kit::MimeType(path)->size(), 256U);
    EXPECT_EQ(kit::AttributesSize(path, true), 7 + 11 + 3000 + 9);

    fs::create_symlink(path, folder / "link");
    EXPECT_EQ(kit::AttributesSize(folder / "link", true), 7 + 11 + 3000 + 9);
    EXPECT_EQ(kit::AttributesSize(folder / "link", false), 0);
    EXPECT_EQ(kit::ReadAttribute(folder / "link", "kt:language"), "Deutsch");
    EXPECT_FALSE(kit::WriteAttribute(folder / "missing", "x", "y").ok());
}

TEST(NodeAttributes, FoldersThatCannot) {
    EXPECT_FALSE(kit::SupportsAttributes("/proc"));
    EXPECT_FALSE(kit::SupportsAttributes("/no/such/folder"));
    TemporaryFolder folder;
    EXPECT_FALSE(kit::IsReadOnly(folder.Path()));
    EXPECT_FALSE(kit::IsReadOnly("/no/such/folder"));
}

TEST(AddOnImage, LoadsWhatOnlyTheUserCanWrite) {
    TemporaryFolder folder;
    fs::copy_file(KIT_ADDON, folder / "addon");
    fs::permissions(folder / "addon", fs::perms(0755));
    fs::permissions(folder.Path(), fs::perms(0755));
    auto image = kit::AddOnImage::Load(folder / "addon");
    ASSERT_TRUE(image.ok()) << image.error().Text();
    kit::AddOnImage moved = std::move(*image);
    auto* answer = reinterpret_cast<int (*)()>(moved.Symbol("kit_test_answer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(moved.Symbol("missing"), nullptr);
    EXPECT_EQ(image->Symbol("kit_test_answer"), nullptr) << "moved from";

    const auto kind = [&folder](const char* name) {
        return kit::AddOnImage::Load(folder / name).error().kind;
    };
    fs::permissions(folder / "addon", fs::perms(0757));
    EXPECT_EQ(kind("addon"), ErrorKind::Denied);
    fs::permissions(folder / "addon", fs::perms(0755));
    fs::permissions(folder.Path(), fs::perms(01777));
    EXPECT_EQ(kind("addon"), ErrorKind::Denied);
    fs::permissions(folder.Path(), fs::perms(0755));

    fs::create_symlink(KIT_ADDON, folder / "link");
    EXPECT_EQ(kind("link"), ErrorKind::Invalid);
    folder.Write("text", "no image");
    EXPECT_EQ(kind("text"), ErrorKind::Damaged);
    EXPECT_EQ(kind("missing"), ErrorKind::NotFound);
    EXPECT_EQ(kit::AddOnImage::Load("/no/such/folder/addon").error().kind, ErrorKind::NotFound);

    folder.Write(".hidden", "");
    fs::create_directory(folder / "folder");
    EXPECT_THAT(kit::AddOnImage::Candidates(folder.Path()), testing::ElementsAre("addon", "text"));
    EXPECT_TRUE(kit::AddOnImage::Candidates("/no/such/folder").empty());
}

TEST(AddOnImage, RefusesWhatOthersOwn) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    TemporaryFolder folder;
    fs::copy_file(KIT_ADDON, folder / "addon");
    const auto load = [&folder] { return kit::AddOnImage::Load(folder / "addon").ok(); };
    fs::permissions(folder / "addon", fs::perms(0755));
    ASSERT_TRUE(load());
    ASSERT_EQ(::chown((folder / "addon").c_str(), 12345, 0), 0);
    EXPECT_FALSE(load());
    // Writable for a group: fine for the one that is the user's alone.
    ASSERT_EQ(::chown((folder / "addon").c_str(), 0, 0), 0);
    fs::permissions(folder / "addon", fs::perms(0775));
    EXPECT_TRUE(load());
    ASSERT_EQ(::chown((folder / "addon").c_str(), 0, 12345), 0);
    EXPECT_FALSE(load());
}
