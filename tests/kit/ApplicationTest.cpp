// Starting, being found, being the only one; launching; the folder where programs meet; areas.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <fstream>

#include "kit/app/SharedArea.h"
#include "kit/support/UniqueFd.h"
#include "tests/kit/KitTest.h"

namespace {

constexpr char kEcho[] = "application/x-vnd.test-echo";

int RunToItsEnd(const std::string& path, const std::string& argument) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl(path.c_str(), path.c_str(), argument.c_str(), nullptr);
        ::_exit(99);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string LockOf(const std::string& folder) {
    return folder + "/application_x-vnd.test-echo.lock";
}

TEST(Application, ASecondCopyHandsItsFilesOver) {
    TemporaryFolder folder;
    EchoProcess echo(folder.Path());
    EXPECT_EQ(RunToItsEnd(KIT_ECHO, folder.Path()), 3) << "already running";

    TestApplication second(folder.Path(), kEcho);
    ASSERT_EQ(second.InitCheck(), BApplication::Start::AlreadyRunning);
    EXPECT_EQ(second.OtherTeam(), echo.team);
    BMessage refs(B_REFS_RECEIVED);
    refs.Add("refs", entry_ref{"/a"});
    refs.Add("refs", entry_ref{"/b"});
    BMessage answer;
    const BMessenger running(second.OtherTeam(), BMessenger::kApplication);
    ASSERT_EQ(running.SendMessage(refs, &answer, kLong), BSendResult::Ok);
    EXPECT_EQ(answer.what, "okay"_code);
    ASSERT_EQ(running.SendMessage(BMessage("cnt?"_code), &answer, kLong), BSendResult::Ok);
    EXPECT_EQ(answer.Get<int32_t>("refs", 0), 2);
}

TEST(Application, AMereQuestionDoesNotMakeItASecondCopy) {
    TemporaryFolder folder;
    const kit::UniqueFd asking(::open(LockOf(folder.Path()).c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(::flock(asking.Get(), LOCK_SH), 0);
    const kit::UniqueFd watch(::inotify_init1(IN_CLOEXEC));
    ::inotify_add_watch(watch.Get(), LockOf(folder.Path()).c_str(), IN_OPEN);
    std::thread asker([&] {
        // Once it has been turned away a few times the question is over.
        std::array<char, 3 * sizeof(inotify_event)> events;
        for (size_t seen = 0; seen < events.size();) {
            seen += static_cast<size_t>(::read(watch.Get(), events.data(), events.size()));
        }
        ::flock(asking.Get(), LOCK_UN);
    });
    const TestApplication application(folder.Path(), kEcho);
    asker.join();
    EXPECT_EQ(application.InitCheck(), BApplication::Start::Ready);
}

TEST(Application, CopiesThatMayRunTogetherTakeNoLock) {
    TemporaryFolder folder;
    BApplication::Options options;
    options.runDirectory = kit::RunDirectory(folder.Path());
    options.multiple = true;
    const BApplication first(kEcho, options);
    EXPECT_EQ(first.InitCheck(), BApplication::Start::Ready);
    EXPECT_FALSE(BRoster(options.runDirectory).IsRunning(kEcho));
    EXPECT_FALSE(std::filesystem::exists(LockOf(folder.Path())));
}

TEST(Application, SaysWhyItCannotStart) {
    TemporaryFolder folder;
    const TestApplication application(folder.Write("file", ""));
    EXPECT_EQ(application.InitCheck(), BApplication::Start::Failed);
    EXPECT_NE(application.Problem().find("not a folder"), std::string::npos)
        << application.Problem();
}

TEST(Roster, FindsWhoRunsAndOnlyAsLongAsItDoes) {
    TemporaryFolder folder;
    const BRoster roster{kit::RunDirectory(folder.Path())};
    EXPECT_FALSE(roster.TeamFor(kEcho));
    {
        EchoProcess echo(folder.Path());
        EXPECT_EQ(roster.TeamFor(kEcho), echo.team);
        EXPECT_FALSE(roster.TeamFor("application/x-vnd.test-ech"));
        ::kill(echo.team, SIGKILL);
        EXPECT_TRUE(WaitUntil([&] { return !roster.IsRunning(kEcho); }));
        EXPECT_TRUE(std::filesystem::exists(LockOf(folder.Path()))) << "stale, and not believed";
        EXPECT_FALSE(roster.WaitForTeam(echo.team, 20000));
    }
    EchoProcess again(folder.Path());
    EXPECT_EQ(roster.TeamFor(kEcho), again.team);
}

TEST(Roster, WaitsForANumberThatIsBeingWritten) {
    TemporaryFolder folder;
    const BRoster roster{kit::RunDirectory(folder.Path())};
    const std::string path = LockOf(folder.Path());
    for (const char* unfinished :
         {"", "123", "no number\n", "99999999999\n", "-5\n", "4194304\n"}) {
        std::ofstream(path) << unfinished;
        const kit::UniqueFd held(::open(path.c_str(), O_RDWR | O_CLOEXEC));
        ASSERT_EQ(::flock(held.Get(), LOCK_EX), 0);
        std::optional<int32_t> team;
        std::atomic<bool> asking = false;
        std::thread asker([&] {
            asking = true;
            team = roster.TeamFor(kEcho);
        });
        WaitUntil([&] { return asking.load(); });
        const std::string text = std::to_string(::getpid()) + "\n";
        ASSERT_EQ(::ftruncate(held.Get(), 0), 0);
        ASSERT_EQ(::pwrite(held.Get(), text.data(), text.size(), 0),
                  static_cast<ssize_t>(text.size()));
        asker.join();
        EXPECT_EQ(team, ::getpid()) << unfinished;
    }
}

TEST(Roster, LaunchesAProgramOfItsOwn) {
    TemporaryFolder folder;
    const EchoProcess echo(folder.Path());
    EXPECT_EQ(::waitpid(echo.team, nullptr, WNOHANG), -1) << "no child of ours";
    EXPECT_EQ(errno, ECHILD);
    EXPECT_NE(::getsid(echo.team), ::getsid(0));
    for (const char* stream : {"0", "1", "2"}) {
        EXPECT_EQ(
            std::filesystem::read_symlink("/proc/" + std::to_string(echo.team) + "/fd/" + stream),
            "/dev/null");
    }
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(echo.team) + "/cwd"), "/");
}

TEST(Roster, AProgramThatCannotBeExecutedIsAnErrorAtOnce) {
    TemporaryFolder folder;
    const BRoster roster{kit::RunDirectory(folder.Path())};
    const auto absent = roster.Launch(folder.Path() + "/absent");
    ASSERT_FALSE(absent);
    EXPECT_EQ(absent.error().kind, kit::ErrorKind::NotFound);
    const auto text = roster.Launch(folder.Write("text", "no program"));
    ASSERT_FALSE(text);
    EXPECT_EQ(text.error().kind, kit::ErrorKind::Denied);
}

TEST(RunDirectory, IsMadeForTheUserAloneAndRefusedOtherwise) {
    TemporaryFolder folder;
    const std::string path = folder.Path() + "/run";
    const kit::RunDirectory directory(path);
    ASSERT_TRUE(directory.Prepare());
    ASSERT_TRUE(directory.Prepare()) << "a second time";
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    EXPECT_EQ(directory.LockPath("application/x-vnd.velmoraware-backupserver"),
              path + "/application_x-vnd.velmoraware-backupserver.lock");
    EXPECT_EQ(directory.SocketPath(12), path + "/team-12.sock");

    ::chmod(path.c_str(), 0750);
    EXPECT_FALSE(directory.Prepare());
    ::chmod(path.c_str(), 0700);
    ::symlink(path.c_str(), (folder.Path() + "/link").c_str());
    EXPECT_FALSE(kit::RunDirectory(folder.Path() + "/link").Prepare());
    EXPECT_FALSE(kit::RunDirectory(folder.Path() + "/absent/run").Prepare());
    const kit::Status deep = kit::RunDirectory("/tmp/" + std::string(90, 'd')).Prepare();
    ASSERT_FALSE(deep);
    EXPECT_EQ(deep.error().kind, kit::ErrorKind::TooLarge);
}

TEST(RunDirectory, LiesWhereTheSessionSays) {
    ::setenv("XDG_RUNTIME_DIR", "/some/where", 1);
    EXPECT_EQ(kit::RunDirectory::Default().Path(), "/some/where/velmora-backup");
    ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(kit::RunDirectory::Default().Path(),
              "/tmp/velmora-backup-" + std::to_string(::geteuid()));
}

std::string AreaName(int32_t team, int32_t id) {
    return "/velmora-" + std::to_string(team) + "-" + std::to_string(id);
}

bool AreaIsThere(int32_t team, int32_t id) {
    const int file = ::shm_open(AreaName(team, id).c_str(), O_RDONLY, 0);
    if (file >= 0) ::close(file);
    return file >= 0;
}

TEST(SharedArea, IsReadByAnotherAndGoneWithItsOwner) {
    TemporaryFolder folder;
    const TestApplication application(folder.Path());
    EchoProcess echo(folder.Path());
    BMessage ask = Made("area"_code, {{"text", std::string(3000000, 'x')}});
    BMessage answer;
    ASSERT_EQ(echo.Messenger().SendMessage(ask, &answer, kLong), BSendResult::Ok);
    const int32_t id = answer.Get<int32_t>("area_id", 0);
    const auto read = kit::SharedArea::Read(echo.team, id);
    ASSERT_TRUE(read) << read.error().Text();
    EXPECT_EQ(read->what, "left"_code);
    EXPECT_EQ(read->FindString("text"), std::string(3000000, 'x'));
    echo.Messenger().SendMessage(B_QUIT_REQUESTED);
    EXPECT_TRUE(WaitUntil([&] { return !AreaIsThere(echo.team, id); })) << "unlinked at the exit";
}

TEST(SharedArea, IsUnlinkedWhenItIsLetGo) {
    int32_t id = 0;
    {
        auto first = kit::SharedArea::Create(BMessage("left"_code));
        auto second = kit::SharedArea::Create(BMessage("left"_code));
        ASSERT_TRUE(first && second);
        EXPECT_NE(first->Id(), second->Id());
        id = first->Id();
        const kit::SharedArea moved = std::move(*first);
        EXPECT_TRUE(kit::SharedArea::Read(::getpid(), moved.Id()));
    }
    EXPECT_FALSE(AreaIsThere(::getpid(), id));
    const auto absent = kit::SharedArea::Read(::getpid(), id);
    ASSERT_FALSE(absent);
    EXPECT_EQ(absent.error().kind, kit::ErrorKind::NotFound);
}

TEST(SharedArea, WhatIsNoMessageOfTheUsersIsRefused) {
    constexpr int32_t kId = 123456;
    const std::string name = AreaName(::getpid(), kId);
    const Bytes good = BMessage("left"_code).Flatten();
    const auto make = [&](Bytes bytes, mode_t mode = 0600) {
        ::shm_unlink(name.c_str());
        const kit::UniqueFd file(::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
        ::fchmod(file.Get(), mode);
        EXPECT_EQ(::write(file.Get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
        return kit::SharedArea::Read(::getpid(), kId).ok();
    };
    EXPECT_TRUE(make(good));
    EXPECT_FALSE(make(good, 0640));
    Bytes padded = good;
    padded.resize(4096);
    EXPECT_TRUE(make(padded)) << "the last page need not be full";
    EXPECT_FALSE(make({}));
    EXPECT_FALSE(make(Bytes(good.begin(), good.end() - 1)));
    Bytes lying = good;
    lying[8] = lying[15] = 0xFF;
    EXPECT_FALSE(make(lying));
    BMessage pointer;
    pointer.Add("p", static_cast<void*>(&pointer));
    EXPECT_FALSE(make(pointer.Flatten()));
    EXPECT_FALSE(kit::SharedArea::Create(pointer));
    ::shm_unlink(name.c_str());
}

}  // namespace
