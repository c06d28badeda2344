#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "kit/app/BLooper.h"
#include "kit/storage/BNodeMonitor.h"
#include "tests/kit/KitTest.h"

namespace fs = std::filesystem;

namespace {

// Notes what the monitor tells.
class Listener : public BLooper {
public:
    Listener() : BLooper("listener") { Run(); }
    void MessageReceived(BMessage& message) override {
        if (message.what == B_NODE_MONITOR) heard.Put(std::move(message));
    }
    // Waits for the message about a mark that the test makes last, and gives all before it: so that
    // "nothing was told" needs no waiting for nothing.
    std::vector<BMessage> Until(const std::string& mark) {
        std::vector<BMessage> all;
        for (;;) {
            auto some = heard.Wait(1);
            if (some.empty()) {
                ADD_FAILURE() << "nothing came";
                return all;
            }
            for (auto& message : some) {
                if (message.Get<std::string>("name", "") == mark) return all;
                all.push_back(std::move(message));
            }
        }
    }
    Box<BMessage> heard;
};

node_ref NodeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return {status.st_dev, status.st_ino};
}

// "opcode name" and, for moves, the former name.
std::string Said(const BMessage& message) {
    std::string text = std::to_string(message.Get<int32_t>("opcode", 0)) + ' ' +
                       message.Get<std::string>("name", "");
    if (message.Has("from name")) text += " < " + message.Get<std::string>("from name", "");
    return text;
}

std::vector<std::string> Said(const std::vector<BMessage>& messages) {
    std::vector<std::string> texts;
    for (const auto& message : messages)
        texts.push_back(Said(message));
    return texts;
}

class NodeMonitor : public testing::Test {
protected:
    NodeMonitor() : fMonitor(std::make_unique<BNodeMonitor>(BMessenger(&fListener))) {
        fs::create_directories(fFolder / "a");
        fs::create_directories(fFolder / "b");
        for (const char* name : {"", "/a", "/b"}) {
            EXPECT_TRUE(fMonitor->WatchDirectory(fFolder.Path() + name).ok());
        }
    }
    // A file whose creation says that everything before it was told.
    std::vector<std::string> Told() {
        const std::string name = "mark" + std::to_string(++fMarks);
        fFolder.Write(name, "");
        return Said(fListener.Until(name));
    }

    TemporaryFolder fFolder;
    Listener fListener;
    std::unique_ptr<BNodeMonitor> fMonitor;
    int fMarks = 0;
};

using Words = std::vector<std::string>;

}  // namespace

TEST_F(NodeMonitor, CreatedRemovedMoved) {
    fFolder.Write("a/new", "");
    const auto heard = fListener.heard.Wait(1);
    ASSERT_EQ(heard.size(), 1U);
    const node_ref directory = NodeOf(fFolder / "a");
    const node_ref entry = NodeOf(fFolder / "a/new");
    EXPECT_EQ(heard[0].Get<int32_t>("opcode", 0), 1);
    EXPECT_EQ(heard[0].Get<int64_t>("device", 0), static_cast<int64_t>(directory.device));
    EXPECT_EQ(heard[0].Get<int64_t>("directory", 0), static_cast<int64_t>(directory.node));
    EXPECT_EQ(heard[0].Get<int64_t>("node", 0), static_cast<int64_t>(entry.node));
    EXPECT_EQ(heard[0].Get<std::string>("name", ""), "new");

    fs::rename(fFolder / "a/new", fFolder / "b/other");
    const auto moved = fListener.heard.Wait(1);
    ASSERT_EQ(moved.size(), 1U);
    EXPECT_EQ(Said(moved[0]), "3 other < new");
    EXPECT_EQ(moved[0].Get<int64_t>("from directory", 0), static_cast<int64_t>(directory.node));
    EXPECT_EQ(moved[0].Get<int64_t>("to directory", 0),
              static_cast<int64_t>(NodeOf(fFolder / "b").node));
    EXPECT_EQ(moved[0].Get<int64_t>("node", 0), static_cast<int64_t>(entry.node));

    fs::remove(fFolder / "b/other");
    EXPECT_EQ(Told(), Words{"2 other"});
}

TEST_F(NodeMonitor, MovesAcrossTheBorder) {
    TemporaryFolder outside;
    outside.Write("stranger", "");
    fs::rename(outside / "stranger", fFolder / "a/stranger");
    EXPECT_EQ(Told(), Words{"1 stranger"});
    fs::rename(fFolder / "a/stranger", outside / "stranger");
    EXPECT_EQ(Told(), Words{"2 stranger"});
}

TEST_F(NodeMonitor, PassingThingsAreNotTold) {
    for (int i = 0; i < 20; ++i) {
        fFolder.Write("a/passing", "");
        fs::remove(fFolder / "a/passing");
    }
    fFolder.Write("b/.part", "");
    fs::rename(fFolder / "b/.part", fFolder / "b/whole");
    // The batch may end between any two of these; what is told must add up to "whole" all the same.
    std::map<std::string, int> balance;
    for (const auto& text : Told()) {
        if (text == "1 passing") ++balance["passing"];
        if (text == "2 passing") --balance["passing"];
        if (text == "1 whole" || text == "3 whole < .part") ++balance["whole"];
        EXPECT_LE(balance["passing"], 1);
    }
    EXPECT_EQ(balance["passing"], 0);
    EXPECT_EQ(balance["whole"], 1);
}

TEST_F(NodeMonitor, AWatchedDirectoryIsRenamed) {
    fs::create_directory(fFolder / "a/deep");
    ASSERT_TRUE(fMonitor->WatchDirectory(fFolder / "a/deep").ok());
    const node_ref deep = NodeOf(fFolder / "a/deep");
    EXPECT_EQ(Told(), Words{"1 deep"});
    fs::rename(fFolder / "a", fFolder / "renamed");
    EXPECT_EQ(Told(), Words{"3 renamed < a"});
    fFolder.Write("renamed/deep/file", "");
    const auto heard = fListener.heard.Wait(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0].Get<int64_t>("directory", 0), static_cast<int64_t>(deep.node));
    EXPECT_EQ(heard[0].Get<int64_t>("node", 0),
              static_cast<int64_t>(NodeOf(fFolder / "renamed/deep/file").node))
        << "it is looked up under the new name";
}

TEST_F(NodeMonitor, AWatchedDirectoryIsRemoved) {
    const node_ref b = NodeOf(fFolder / "b");
    fs::remove(fFolder / "b");
    const auto heard = fListener.heard.Wait(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(Said(heard[0]), "2 b");
    EXPECT_EQ(heard[0].Get<int64_t>("node", 0), static_cast<int64_t>(b.node));
    fs::create_directory(fFolder / "b");
    fFolder.Write("b/unseen", "");
    EXPECT_EQ(Told(), Words{"1 b"}) << "the new one is not watched";
    EXPECT_TRUE(fMonitor->WatchDirectory(fFolder / "b").ok());
    fFolder.Write("b/seen", "");
    EXPECT_EQ(Told(), Words{"1 seen"});
}

TEST_F(NodeMonitor, StopWatching) {
    fMonitor->StopWatching(NodeOf(fFolder / "a"));
    fMonitor->StopWatching({1, 2});
    fFolder.Write("a/unheard", "");
    EXPECT_EQ(Told(), Words{});
    EXPECT_EQ(fMonitor->WatchDirectory(fFolder / "missing").error().kind, kit::ErrorKind::NotFound);
    EXPECT_FALSE(fMonitor->WatchDirectory(fFolder.Write("file", "")).ok());
}

TEST_F(NodeMonitor, TooManyEventsAreOneOverflow) {
    for (int i = 0; i < 6'000; ++i) {
        ::close(::open((fFolder / ("a/" + std::to_string(i))).c_str(), O_CREAT | O_WRONLY, 0600));
    }
    size_t told = 0;
    bool overflow = false;
    while (told < 6'000 && !overflow) {
        const auto heard = fListener.heard.Wait(1);
        ASSERT_FALSE(heard.empty());
        for (const auto& message : heard) {
            overflow |= message.Get<int32_t>("opcode", 0) == BNodeMonitor::kOverflow;
        }
        told += heard.size();
    }
    // A slow machine may hand them over in batches that are small enough; then none is missing.
    EXPECT_TRUE(overflow || told == 6'000);
    fFolder.Write("b/after", "");
    WaitUntil([this] { return fListener.heard.Count() > 0; });
    EXPECT_EQ(Told().back(), "1 after") << "it goes on afterwards";
}

TEST_F(NodeMonitor, EndsWhileThingsHappen) {
    for (int i = 0; i < 200; ++i)
        fFolder.Write("a/" + std::to_string(i), "");
    fMonitor.reset();
    fFolder.Write("a/late", "");
    fMonitor = std::make_unique<BNodeMonitor>(BMessenger(&fListener));
    EXPECT_TRUE(fMonitor->WatchDirectory(fFolder.Path()).ok());
    for (const auto& text : Told())
        EXPECT_NE(text, "1 late");
}

TEST(NodeMonitorMounts, MountedAndUnmounted) {
    // Before there is a second thread: a mount list of the test's own.
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        GTEST_SKIP() << "this system lets nobody mount";
    }
    TemporaryFolder folder;
    Listener listener;
    BNodeMonitor monitor{BMessenger(&listener)};
    ASSERT_TRUE(monitor.WatchMounts().ok());
    ASSERT_TRUE(monitor.WatchMounts().ok()) << "twice is once";
    ASSERT_EQ(::mount("none", folder.Path().c_str(), "tmpfs", 0, nullptr), 0);
    const auto device = static_cast<int64_t>(NodeOf(folder.Path()).device);
    auto heard = listener.heard.Wait(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0].Get<int32_t>("opcode", 0), 6);
    EXPECT_EQ(heard[0].Get<int64_t>("new device", 0), device);
    EXPECT_EQ(heard[0].Get<std::string>("path", ""), folder.Path());
    ASSERT_EQ(::umount(folder.Path().c_str()), 0);
    heard = listener.heard.Wait(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0].Get<int32_t>("opcode", 0), 7);
    EXPECT_EQ(heard[0].Get<int64_t>("device", 0), device);
}
