// Two real processes, the kit on both sides.
#include <atomic>

#include "kit/link/Link.h"
#include "tests/kit/KitTest.h"

namespace {

class Processes : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(application->InitCheck(), BApplication::Start::Ready) << application->Problem();
    }

    TemporaryFolder folder;
    std::unique_ptr<TestApplication> application = std::make_unique<TestApplication>(folder.Path());
    EchoProcess echo{folder.Path()};
};

std::optional<uint32_t> Ask(const BMessenger& messenger, BMessage question) {
    BMessage answer;
    if (messenger.SendMessage(std::move(question), &answer, kLong) != BSendResult::Ok) {
        return std::nullopt;
    }
    return answer.what;
}

BMessage Sized(uint32_t code, size_t size) {
    BMessage message(code);
    message.AddData("data", "RAWT"_code, Bytes(size, 0x55).data(), size);
    return message;
}

TEST_F(Processes, AQuestionIsAnsweredAndTheSenderIsKnown) {
    BMessage question = Made("echo"_code, {{"text", "hello"}});
    BMessage answer;
    ASSERT_EQ(echo.Messenger().SendMessage(question, &answer, kLong), BSendResult::Ok);
    ExpectIs(answer, "echo"_code, {{"text", "hello"}});
    EXPECT_EQ(answer.Find<int32_t>("from"), ::getpid());
    EXPECT_EQ(answer.Find<bool>("remote"), true);
    EXPECT_TRUE(echo.Messenger().IsValid());
    EXPECT_EQ(Ask({echo.team, 12345}, BMessage("echo"_code)), 0u) << "no such handler";
}

TEST_F(Processes, WhoIsNotThereIsNoTarget) {
    for (const int32_t team : {0, -1, 1, INT32_MAX}) {
        const BMessenger nobody(team, -1);
        EXPECT_FALSE(nobody.IsValid());
        EXPECT_EQ(nobody.SendMessage("note"_code), BSendResult::NoTarget);
        BMessage answer;
        EXPECT_EQ(nobody.SendMessage(BMessage("note"_code), &answer), BSendResult::NoTarget);
    }
}

TEST_F(Processes, APointerDoesNotLeaveTheProcess) {
    BMessage inner;
    inner.Add("p", static_cast<void*>(&inner));
    BMessage message = Made("note"_code, {{"m", inner}});
    BMessage answer;
    EXPECT_EQ(echo.Messenger().SendMessage(message), BSendResult::Refused);
    EXPECT_EQ(echo.Messenger().SendMessage(message, &answer), BSendResult::Refused);
    EXPECT_EQ(Ask(echo.Messenger(), BMessage("cnt?"_code)), "cnt!"_code);
}

TEST_F(Processes, MessagesArriveInOrderFromBothSides) {
    constexpr int32_t kCount = 5000;
    for (int32_t n = 0; n < kCount; ++n) {
        ASSERT_EQ(echo.Messenger().SendMessage(Made(
                      "tell"_code,
                      {{"target", BMessenger(::getpid(), BMessenger::kApplication)}, {"n", n}})),
                  BSendResult::Ok);
    }
    const auto told = application->told.Wait(kCount);
    ASSERT_EQ(told.size(), static_cast<size_t>(kCount));
    for (int32_t n = 0; n < kCount; ++n)
        ASSERT_EQ(told[static_cast<size_t>(n)], n);
}

TEST_F(Processes, OneMessageMayBeLargerThanWhatMayWaitBehindIt) {
    Box<size_t> sizes;
    echo.Messenger().Ask(Sized("echo"_code, 66 << 20), [&](BSendResult, const BMessage& answer) {
        const auto data = answer.FindData("data", "RAWT"_code);
        sizes.Put(data ? data->size() : 0);
    });
    for (int i = 0; i < 100; ++i)
        echo.Messenger().SendMessage("note"_code);
    EXPECT_EQ(sizes.Wait(1), std::vector{size_t{66} << 20});
    EXPECT_EQ(application->gone.Count(), 0u);
}

TEST_F(Processes, ManyThreadsAskAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    for (int32_t thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            for (int32_t i = 0; i < 200; ++i) {
                const BMessage question = Made("echo"_code, {{"n", thread * 1000 + i}});
                BMessage answer;
                if (echo.Messenger().SendMessage(question, &answer, kLong) == BSendResult::Ok &&
                    answer.Get<int32_t>("n", -1) == thread * 1000 + i) {
                    ++right;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, 1600);
}

TEST_F(Processes, WhoeverAnswersMayAskBack) {
    BMessage ask =
        Made("ask!"_code, {{"target", BMessenger(::getpid(), BMessenger::kApplication)}});
    EXPECT_EQ(Ask(echo.Messenger(), ask), "quip"_code);
}

TEST_F(Processes, ACallbackMaySendButNotWait) {
    Box<BSendResult> results;
    const BMessenger target = echo.Messenger();
    target.Ask(BMessage("echo"_code), [&](BSendResult result, const BMessage&) {
        results.Put(result);
        results.Put(target.SendMessage("note"_code));
        results.Put(BMessenger(::getpid() + 1000000, -1).SendMessage("note"_code));
        BMessage answer;
        results.Put(target.SendMessage(BMessage("echo"_code), &answer));
        target.Ask(BMessage("cnt?"_code), [&](BSendResult second, const BMessage& counted) {
            EXPECT_EQ(counted.Get<int32_t>("notes", 0), 1);
            results.Put(second);
        });
    });
    EXPECT_EQ(results.Wait(5), (std::vector{BSendResult::Ok, BSendResult::Ok, BSendResult::NoTarget,
                                            BSendResult::Refused, BSendResult::Ok}));
}

TEST_F(Processes, TheEndOfAPeerEndsItsQuestionsAndIsTold) {
    Box<BSendResult> results;
    for (int i = 0; i < 3; ++i) {
        echo.Messenger().Ask(BMessage("keep"_code),
                             [&](BSendResult result, const BMessage&) { results.Put(result); });
    }
    ASSERT_EQ(Ask(echo.Messenger(), BMessage("cnt?"_code)), "cnt!"_code);
    EXPECT_EQ(application->gone.Count(), 0u);
    BMessage answer;
    EXPECT_EQ(echo.Messenger().SendMessage(BMessage("exit"_code), &answer), BSendResult::NoReply);
    EXPECT_EQ(results.Wait(3), std::vector<BSendResult>(3, BSendResult::NoReply));
    EXPECT_EQ(application->gone.Wait(1), std::vector<int32_t>{echo.team});
    // A process that ends may close its listening socket after the others.
    EXPECT_TRUE(WaitUntil([&] { return !echo.Messenger().IsValid(); }));
    EXPECT_EQ(echo.Messenger().SendMessage("note"_code), BSendResult::NoTarget);
}

TEST_F(Processes, ALateAnswerIsDropped) {
    BMessage answer("mine"_code);
    EXPECT_EQ(echo.Messenger().SendMessage(BMessage("keep"_code), &answer, 5ms),
              BSendResult::TimedOut);
    EXPECT_EQ(echo.Messenger().SendMessage("free"_code), BSendResult::Ok);
    EXPECT_EQ(Ask(echo.Messenger(), BMessage("cnt?"_code)), "cnt!"_code);
    EXPECT_EQ(answer.what, "mine"_code);
}

TEST_F(Processes, AStuckPeerHoldsUpNobodyAndIsCut) {
    EchoProcess stuck(folder.Path(), "application/x-vnd.test-stuck");
    Box<BSendResult> results;
    ASSERT_EQ(stuck.Messenger().SendMessage("halt"_code), BSendResult::Ok);
    stuck.Messenger().Ask(BMessage("echo"_code),
                          [&](BSendResult result, const BMessage&) { results.Put(result); });
    const BMessage megabyte = Sized("note"_code, 1 << 20);
    for (int i = 0; i < 70; ++i) {
        stuck.Messenger().SendMessage(megabyte);
        ASSERT_EQ(Ask(echo.Messenger(), BMessage("cnt?"_code)), "cnt!"_code);
    }
    EXPECT_EQ(results.Wait(1), std::vector{BSendResult::NoReply});
    EXPECT_EQ(application->gone.Wait(1), std::vector<int32_t>{stuck.team});
}

TEST_F(Processes, WhatWasSentBeforeTheEndArrives) {
    for (int i = 0; i < 300; ++i)
        echo.Messenger().SendMessage(Sized("note"_code, 100 << 10));
    application.reset();
    EXPECT_FALSE(echo.Messenger().IsValid()) << "the link is gone";
    application = std::make_unique<TestApplication>(folder.Path());
    BMessage answer;
    ASSERT_EQ(echo.Messenger().SendMessage(BMessage("cnt?"_code), &answer, kLong), BSendResult::Ok);
    EXPECT_EQ(answer.Get<int32_t>("notes", 0), 300);
}

TEST_F(Processes, EveryQuestionEndsWhenTheApplicationDoes) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> asked = 0;
        std::atomic<int> ended = 0;
        std::atomic<bool> stop = false;
        std::thread asker([&] {
            while (!stop) {
                ++asked;
                echo.Messenger().Ask(BMessage("keep"_code),
                                     [&](BSendResult, const BMessage&) { ++ended; });
            }
        });
        WaitUntil([&] { return asked > 20; });
        application.reset();
        stop = true;
        asker.join();
        ASSERT_EQ(asked, ended);
        application = std::make_unique<TestApplication>(folder.Path());
    }
}

TEST_F(Processes, TheEndOfATeamCannotBeFeigned) {
    // The code that the connection thread uses inside, said by another process.
    EXPECT_EQ(Ask(echo.Messenger(), Made("_TGN"_code, {{"team", ::getpid()}})), 0u);
    EXPECT_EQ(Ask(echo.Messenger(), BMessage("cnt?"_code)), "cnt!"_code);
}

}  // namespace
