// Bad lines, bad remotes and bad settings. What every destination must do is tested with the
// others.
#include "addons/KTRemote/KTRemote.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "tests/TemporaryFolder.h"
#include "tests/addons/RcloneServer.h"

namespace {

using kit::ErrorKind;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char kName[] = "20261122T201530-0000001a";
constexpr char kPartial[] = "20261122T201530-0000001a.partial";

Bytes Noise(size_t size, uint32_t seed = 1) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>((seed = seed * 1664525U + 1013904223U) >> 24);
    return bytes;
}

Bytes ContentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A job: what it was told, and what it does when it is told something.
struct Job : KTVolumeHost {
    bool IsAborted() const override {
        ++asked;
        asked.notify_all();
        return aborted;
    }
    void Tell(const std::string& words) override {
        const std::lock_guard lock(mutex);
        told.push_back(words);
        if (onTell) onTell();
    }
    std::atomic<bool> aborted = false;
    mutable std::atomic<int> asked = 0;
    std::mutex mutex;
    std::vector<std::string> told;
    std::function<void()> onTell;
};

class Remote : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (!RcloneServer::IsInstalled()) GTEST_SKIP() << "rclone is not installed";
        fServer = std::make_unique<RcloneServer>(GetParam(), fFolder.Path());
        fLimits.waits = {milliseconds(1), milliseconds(1), milliseconds(1)};
        fLimits.leaveFree = 0;
        Make("test:");
    }
    void Make(const std::string& remote) {
        fVolume = std::make_unique<KTRemote>(fLimits);
        BMessage settings;
        settings.Add("remote", remote);
        fVolume->SetSettings(settings);
        fVolume->SetHost(&fJob);
    }
    std::unique_ptr<KTVolumeWriter> Begin() {
        EXPECT_TRUE(fVolume->BeginBackup(kName));
        auto writer = fVolume->CreateFile(kName, "0001.tar");
        EXPECT_TRUE(writer);
        return writer ? std::move(*writer) : nullptr;
    }
    // From here on every run of rclone is written down, its words with "|" between them.
    void Spy() {
        std::ofstream(fTools / "spy") << "#!/bin/bash\n(IFS='|'; echo \"$*\") >> '"
                                      << (fTools / "log") << "'\nexec rclone \"$@\"\n";
        ::chmod((fTools / "spy").c_str(), 0700);
        fLimits.program = fTools / "spy";
    }
    std::vector<std::string> Runs() const {
        std::ifstream log(fTools / "log");
        std::vector<std::string> runs;
        for (std::string line; std::getline(log, line);)
            runs.push_back(line);
        return runs;
    }
    // Aborts the job as soon as `call` has begun to wait; how long it still took.
    template <class Call>
    static milliseconds TimeToAbort(Job& job, const Call& call) {
        std::atomic<bool> isDone = false;
        std::thread thread([&] {
            call();
            isDone = true;
        });
        // Asked that often it is in the middle of waiting: the server is frozen.
        for (int now = job.asked, enough = now + 8; now < enough; now = job.asked)
            job.asked.wait(now);
        EXPECT_FALSE(isDone);
        const auto start = Clock::now();
        job.aborted = true;
        thread.join();
        return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    }

    TemporaryFolder fFolder, fTools;
    RcloneLimits fLimits;
    Job fJob;
    std::unique_ptr<RcloneServer> fServer;
    std::unique_ptr<KTRemote> fVolume;
};

INSTANTIATE_TEST_SUITE_P(All, Remote, testing::Values("sftp", "webdav"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(Remote, TellsWrongCredentialsAndUnknownNamesAtOnce) {
    Make("wrong:");
    kit::Status status = fVolume->CheckAccess();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().kind, ErrorKind::Denied);
    EXPECT_EQ(status.error().Text(),
              "the remote refuses the user name, the password or the key: wrong:");
    Make("nobody:x");
    status = fVolume->CheckAccess();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().kind, ErrorKind::NotFound);
    EXPECT_THAT(status.error().Text(), HasSubstr("rclone config"));
    EXPECT_TRUE(fJob.told.empty());
}

TEST_P(Remote, WaitsForARemoteThatIsDownAndSaysSo) {
    fServer->Kill();
    kit::Status status = fVolume->CheckAccess();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().kind, ErrorKind::Io);
    ASSERT_EQ(fJob.told.size(), fLimits.waits.size());
    EXPECT_THAT(fJob.told[2], HasSubstr("cannot be reached: test:. Trying again in 0 s (3 of 3)"));
    fJob.told.clear();
    fJob.onTell = [this] { fServer->Start(); };
    EXPECT_TRUE(fVolume->CheckAccess());
    EXPECT_EQ(fJob.told.size(), 1u);
    EXPECT_TRUE(std::filesystem::is_empty(fFolder.Path()));
}

TEST_P(Remote, SendsAFileAgainAfterALostConnection) {
    const Bytes content = Noise(20'000'000);
    const std::span<const uint8_t> all(content);
    auto writer = Begin();
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->Write(all.first(6'000'000)));
    fServer->Kill();
    fJob.onTell = [this] {
        if (fJob.told.size() == 1) fServer->Start();
    };
    ASSERT_TRUE(writer->Write(all.subspan(6'000'000, 8'000'000)));
    ASSERT_TRUE(writer->Write(all.subspan(14'000'000)));
    const kit::Status status = writer->Finish();
    ASSERT_TRUE(status) << status.error().Text();
    EXPECT_FALSE(fJob.told.empty());
    EXPECT_TRUE(ContentOf(fFolder / kPartial + "/0001.tar") == content);
}

TEST_P(Remote, SaysThatALargeFileCannotBeSentAgain) {
    fLimits.mostKept = 1'000'000;
    Make("test:");
    const Bytes content = Noise(2'000'000);
    auto writer = Begin();
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->Write(content));
    EXPECT_EQ(writer->Truncate(5).error().kind, ErrorKind::Unsupported);
    fServer->Kill();
    kit::Status status;
    for (int i = 0; i < 100 && status; ++i)
        status = writer->Write(content);
    if (status) status = writer->Finish();
    ASSERT_FALSE(status);
    EXPECT_THAT(status.error().Text(), HasSubstr("too large to be sent again"));
    EXPECT_EQ(writer->Write(content).error().Text(), status.error().Text());
    EXPECT_TRUE(fJob.told.empty());
}

TEST_P(Remote, GivesUpOnARemoteThatHangs) {
    fLimits.idle = milliseconds(1000);
    fLimits.call = milliseconds(3000);
    fLimits.waits.clear();
    Make("test:");
    fServer->Freeze();
    const auto start = Clock::now();
    const kit::Status status = fVolume->CheckAccess();
    const auto took = Clock::now() - start;
    fServer->GoOn();
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().kind, ErrorKind::Io);
    EXPECT_LT(took, milliseconds(12000));
}

TEST_P(Remote, EndsSoonWhenTheJobIsAborted) {
    const Bytes content = Noise(5'000'000);
    auto writer = Begin();
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->Write(content));
    fServer->Freeze();
    kit::Status status;
    EXPECT_LT(TimeToAbort(fJob,
                          [&] {
                              for (int i = 0; i < 100 && status; ++i)
                                  status = writer->Write(content);
                              if (status) status = writer->Finish();
                          }),
              milliseconds(4000));
    EXPECT_EQ(status.error().kind, ErrorKind::Aborted);
    // What is left to do has its own short time, and says when it was too short.
    writer.reset();
    const auto start = Clock::now();
    EXPECT_FALSE(fVolume->RemoveBackup(kPartial));
    EXPECT_LT(Clock::now() - start, milliseconds(6000));
    ASSERT_FALSE(fJob.told.empty());
    EXPECT_THAT(fJob.told.back(), HasSubstr(kPartial));
    fServer->GoOn();

    fJob.aborted = false;
    Make("test:");
    fServer->Freeze();
    EXPECT_LT(TimeToAbort(fJob, [&] { status = fVolume->CheckAccess(); }), milliseconds(4000));
    EXPECT_EQ(status.error().kind, ErrorKind::Aborted);
    fServer->GoOn();
}

TEST_P(Remote, RemovesTheBackupOfAnAbortedJob) {
    auto writer = Begin();
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->Write(Noise(100'000)));
    fJob.aborted = true;
    EXPECT_EQ(writer->Finish().error().kind, ErrorKind::Aborted);
    writer.reset();
    const kit::Status removed = fVolume->RemoveBackup(kPartial);
    EXPECT_TRUE(removed) << removed.error().Text();
    EXPECT_TRUE(std::filesystem::is_empty(fFolder.Path()));
}

// Remotes that cannot rename a folder: the manifest comes last and goes first.
TEST_P(Remote, MovesFilesWhereFoldersCannotBeMoved) {
    Spy();
    Make("test:sub");
    std::filesystem::create_directory(fFolder / "sub");
    ::setenv("RCLONE_DISABLE", "DirMove", 1);
    ASSERT_TRUE(fVolume->BeginBackup(kName));
    for (const char* name : {"0001.tar", "backup.json", "SHA256SUMS"}) {
        auto writer = fVolume->CreateFile(kName, name);
        ASSERT_TRUE(writer);
        ASSERT_TRUE((*writer)->Write(Noise(10)));
        ASSERT_TRUE((*writer)->Finish());
    }
    const kit::Status published = fVolume->Publish(kName);
    EXPECT_TRUE(published) << published.error().Text();
    EXPECT_EQ(*fVolume->ListBackups(), std::vector<std::string>{kName});
    EXPECT_EQ(fVolume->ListFiles(kName)->size(), 3u);
    EXPECT_TRUE(fVolume->RemoveBackup(kName));
    ::unsetenv("RCLONE_DISABLE");
    EXPECT_TRUE(std::filesystem::is_empty(fFolder / "sub"));
    std::vector<std::string> steps;
    for (const std::string& run : Runs()) {
        if (!run.starts_with("move") && !run.starts_with("deletefile|") &&
            !run.starts_with("purge|")) {
            continue;
        }
        steps.push_back(run.substr(0, run.find('|')) + run.substr(run.rfind('/')));
    }
    const std::string whole = std::string("/") + kName;
    EXPECT_EQ(steps, (std::vector<std::string>{"move" + whole, "moveto/backup.json",
                                               "purge" + whole + ".partial",
                                               "deletefile/backup.json", "purge" + whole}));
}

// Every run is looked at: what it is given, and how many there are.
TEST_P(Remote, ReadsOnFromPieceToPieceAndShowsNothingOnTheCommandLine) {
    const std::string place = "a 'b' $(touch x); --delete";
    std::filesystem::create_directories(fFolder / place + "/" + kName);
    const Bytes content = Noise(4'000'000);
    std::ofstream(fFolder / place + "/" + kName + "/0001.tar", std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()), 4'000'000);
    Spy();
    Make("test:" + place);
    Bytes into(100'000);
    const auto expectFrom = [&](int64_t begin) {
        for (int64_t at = begin; at < 4'000'000; at += 100'000) {
            const auto got = fVolume->ReadAt(kName, "0001.tar", at, into);
            ASSERT_TRUE(got) << got.error().Text();
            EXPECT_TRUE(std::equal(into.begin(), into.end(), content.begin() + at)) << at;
        }
    };
    expectFrom(0);
    int cats = 0;
    for (const std::string& line : Runs()) {
        cats += line.starts_with("cat|") ? 1 : 0;
        EXPECT_THAT(line, HasSubstr("|--|test:" + place));
        EXPECT_EQ(line.find(RcloneServer::kPassword), std::string::npos);
    }
    EXPECT_LE(cats, 2);
    EXPECT_GE(cats, 1);
    EXPECT_FALSE(std::filesystem::exists("x"));

    // One that has lost its connection meanwhile is replaced without a word.
    ASSERT_TRUE(fVolume->ReadAt(kName, "0001.tar", 0, into));
    ASSERT_TRUE(fVolume->ReadAt(kName, "0001.tar", 100'000, into));
    fServer->Kill();
    fServer->Start();
    expectFrom(200'000);
}

TEST_P(Remote, TellsAFullPlace) {
    TemporaryFolder small;
    const std::string mount = "mount -t tmpfs -o size=64k none " + small.Path() + " 2>/dev/null";
    if (std::string(GetParam()) == "webdav") GTEST_SKIP() << "this server does not tell";
    if (std::system(mount.c_str()) != 0) GTEST_SKIP() << "needs the right to mount";
    fServer = std::make_unique<RcloneServer>(GetParam(), small.Path());
    auto writer = Begin();
    if (writer) {
        kit::Status status = writer->Write(Noise(1'000'000));
        if (status) status = writer->Finish();
        EXPECT_TRUE(!status && status.error().kind == ErrorKind::Full)
            << (status ? "written" : status.error().Text());
        // Taking it back tells the same: there is nothing to go on from.
        const kit::Status cut = writer->Truncate(0);
        EXPECT_TRUE(!cut && cut.error().kind == ErrorKind::Full);
    }
    fServer->Kill();
    EXPECT_EQ(std::system(("umount " + small.Path()).c_str()), 0);
}

TEST(RemoteSettings, AreCheckedAndHoldNoSecrets) {
    if (!RcloneServer::IsInstalled()) GTEST_SKIP() << "rclone is not installed";
    TemporaryFolder folder;
    RcloneServer server("webdav", folder.Path());
    KTRemote remote;
    auto apply = [&](const std::string& place, int64_t mediaSize = 0) {
        BMessage values;
        values.Add("remote", place);
        values.Add("mediasize", mediaSize);
        values.Add("overwrite", int32_t{1});
        std::string problem;
        const bool taken = remote.ApplySettings(values, BMessenger(), &problem);
        EXPECT_EQ(taken, problem.empty()) << problem;
        return taken;
    };
    const std::vector<std::string> wrong = {
        "",
        "nothing",
        "/a/folder",
        "./a:b",
        ":webdav,pass=hunter2:x",
        "test,pass=hunter2:x",
        ":local:/tmp",
        "-test:x",
        "test:a\nb",
        "nobody:x",
    };
    for (const std::string& place : wrong)
        EXPECT_FALSE(apply(place)) << place;
    EXPECT_FALSE(apply("test:x", (16 << 20) - 1));
    EXPECT_STREQ(remote.MediaName(), "");
    EXPECT_EQ(remote.MediaSize(), KTRemote::kUsualMediaSize);
    EXPECT_TRUE(apply("test:x y/z", 16 << 20));
    EXPECT_STREQ(remote.MediaName(), "test:x y/z");
    EXPECT_EQ(remote.MediaSize(), 16 << 20);
    EXPECT_TRUE(remote.IsOverwrite());
    // One that came by a message is not taken, and shown nowhere.
    BMessage foreign;
    foreign.Add("remote", "test,pass=hunter2:x");
    remote.SetSettings(foreign);
    EXPECT_STREQ(remote.MediaName(), "");
    EXPECT_EQ(remote.CheckAccess().error().kind, ErrorKind::Invalid);

    RcloneLimits limits;
    limits.program = "/no/such/program";
    KTRemote without(limits);
    BMessage values;
    values.Add("remote", "test:x");
    std::string problem;
    EXPECT_FALSE(without.ApplySettings(values, BMessenger(), &problem));
    EXPECT_THAT(problem, HasSubstr("not installed"));
}

}  // namespace
