#include "kit/app/BLooper.h"

#include <atomic>

#include "tests/kit/KitTest.h"

namespace {

// Notes the numbers it is sent; requests are kept or let go.
class Noter : public BHandler {
public:
    void MessageReceived(BMessage& message) override {
        if (message.what == "numb"_code) numbers.push_back(message.Get<int32_t>("n", -1));
        if (message.what == "wait"_code) {
            entered.Put(1);
            may_go_on.Wait(1);
        }
        if (message.what == "done"_code) message.SendReply("okay"_code);
        if (message.what == "dele"_code) delete this;
    }
    std::vector<int32_t> numbers;
    Box<int> entered;
    Box<int> may_go_on;
};

BMessage Number(int32_t n) {
    return Made("numb"_code, {{"n", n}});
}

class RunningLooper : public BLooper {
public:
    RunningLooper() : BLooper("test") { Run(); }
    ~RunningLooper() override { Stop(); }
};

// Driven by the test, as a foreign event loop would.
class ForeignLooper : public BLooper {
public:
    ForeignLooper() : BLooper("foreign") {
        OnPosted([this] { ++wakes; });
    }
    ~ForeignLooper() override { Quit(); }
    using BLooper::DispatchPending;
    std::atomic<int> wakes = 0;
};

TEST(Looper, MessagesComeOneByOneInTheOrderOfPosting) {
    Noter noter;
    {
        RunningLooper looper;
        looper.AddHandler(&noter);
        for (int32_t i = 0; i < 5000; ++i)
            ASSERT_TRUE(looper.PostMessage(Number(i), &noter));
        BMessage answer;
        EXPECT_EQ(BMessenger(&noter).SendMessage(BMessage("done"_code), &answer), BSendResult::Ok);
        EXPECT_EQ(answer.what, "okay"_code);
    }
    ASSERT_EQ(noter.numbers.size(), 5000u);
    for (int32_t i = 0; i < 5000; ++i)
        ASSERT_EQ(noter.numbers[static_cast<size_t>(i)], i);
}

TEST(Looper, WhatIsQueuedAtTheEndIsLetGoAndAnswered) {
    Noter noter;
    RunningLooper looper;
    looper.AddHandler(&noter);
    looper.PostMessage("wait"_code, &noter);
    noter.entered.Wait(1);
    Box<uint32_t> answers;
    BMessenger(&noter).Ask(BMessage("done"_code), [&](BSendResult result, BMessage answer) {
        EXPECT_EQ(result, BSendResult::Ok);
        answers.Put(answer.what);
    });
    looper.Quit();
    EXPECT_EQ(answers.Wait(1), std::vector{0u});
    EXPECT_FALSE(looper.PostMessage("numb"_code, &noter));
    EXPECT_FALSE(BMessenger(&noter).IsValid());
    EXPECT_EQ(BMessenger(&noter).SendMessage("numb"_code), BSendResult::NoTarget);
    noter.may_go_on.Put(1);
}

TEST(Looper, PostsThatRaceTheEndAreTakenOrRefused) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> asked = 0;
        std::atomic<int> answered = 0;
        std::vector<std::thread> threads;
        {
            Noter noter;
            RunningLooper looper;
            looper.AddHandler(&noter);
            const BMessenger messenger(&noter);
            for (int i = 0; i < 3; ++i) {
                threads.emplace_back([&asked, &answered, messenger] {
                    bool there = true;
                    while (there) {
                        ++asked;
                        messenger.Ask(BMessage("done"_code),
                                      [&](BSendResult result, const BMessage&) {
                                          ++answered;
                                          if (result == BSendResult::NoTarget) there = false;
                                      });
                        there = there && messenger.IsValid();
                    }
                });
            }
            WaitUntil([&] { return asked > 10; });
            if (round % 2 == 0) {
                looper.PostMessage(B_QUIT_REQUESTED);
            } else {
                looper.Stop();
            }
            looper.Stop();
        }
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_EQ(asked, answered) << "every question ends exactly once";
    }
}

TEST(Looper, AHandlerThatIsGoneTakesItsMessagesAlong) {
    ForeignLooper looper;
    auto gone = std::make_unique<Noter>();
    Noter stays;
    looper.AddHandler(gone.get());
    looper.AddHandler(&stays);
    std::vector<uint32_t> answers;
    const auto note = [&](BSendResult result, const BMessage& answer) {
        answers.push_back(result == BSendResult::Ok ? answer.what : 1);
    };
    const BMessenger messenger(gone.get());
    messenger.Ask(BMessage("done"_code), note);
    looper.PostMessage(Number(1), &stays);
    messenger.Ask(BMessage("done"_code), note);
    looper.PostMessage(Number(2), &stays);
    EXPECT_TRUE(messenger.IsValid());
    gone.reset();
    EXPECT_EQ(answers, (std::vector<uint32_t>{0, 0}));
    EXPECT_FALSE(messenger.IsValid());
    messenger.Ask(BMessage("done"_code), note);
    EXPECT_EQ(answers.back(), 1u) << "no target";
    EXPECT_FALSE(looper.DispatchPending(10));
    EXPECT_EQ(stays.numbers, (std::vector<int32_t>{1, 2}));
}

TEST(Looper, AHandlerMayDeleteItselfAndAnotherWhileDispatching) {
    ForeignLooper looper;
    auto* first = new Noter;
    looper.AddHandler(first);
    looper.PostMessage("dele"_code, first);
    looper.PostMessage("done"_code, first);
    EXPECT_FALSE(looper.DispatchPending(10));
}

TEST(Looper, AForeignLoopIsWokenAndDispatchesAFew) {
    ForeignLooper looper;
    Noter noter;
    looper.AddHandler(&noter);
    EXPECT_EQ(noter.Looper(), &looper);
    for (int32_t i = 0; i < 5; ++i)
        std::thread([&] { looper.PostMessage(Number(i), &noter); }).join();
    EXPECT_EQ(looper.wakes, 5);
    EXPECT_TRUE(noter.numbers.empty());
    EXPECT_TRUE(looper.DispatchPending(2));
    EXPECT_EQ(noter.numbers.size(), 2u);
    EXPECT_TRUE(looper.IsLoopersThread());
    EXPECT_FALSE(looper.DispatchPending(3));
    EXPECT_EQ(noter.numbers, (std::vector<int32_t>{0, 1, 2, 3, 4}));
    looper.RemoveHandler(&noter);
    EXPECT_EQ(noter.Looper(), nullptr);
    EXPECT_FALSE(looper.PostMessage(Number(1), &noter));
    looper.Quit();
    EXPECT_FALSE(looper.PostMessage("numb"_code));
    EXPECT_EQ(looper.wakes, 5);
}

TEST(Looper, AHandlerOutlivesItsLooperAndJoinsAnother) {
    Noter noter;
    {
        ForeignLooper looper;
        looper.AddHandler(&noter);
    }
    EXPECT_EQ(noter.Looper(), nullptr);
    EXPECT_FALSE(BMessenger(&noter).IsValid());
    ForeignLooper another;
    another.AddHandler(&noter);
    EXPECT_TRUE(BMessenger(&noter).IsValid());
    BMessenger(&noter).SendMessage(Number(3));
    another.DispatchPending(1);
    EXPECT_EQ(noter.numbers, std::vector<int32_t>{3});
}

TEST(Looper, ARefusedQuitGoesOn) {
    class Refusing : public ForeignLooper {
        bool QuitRequested() override { return ++asked > 1; }

    public:
        int asked = 0;
    } looper;
    looper.PostMessage(B_QUIT_REQUESTED);
    looper.DispatchPending(1);
    EXPECT_TRUE(looper.PostMessage(B_QUIT_REQUESTED));
    looper.DispatchPending(1);
    EXPECT_FALSE(looper.PostMessage(B_QUIT_REQUESTED));
    EXPECT_EQ(looper.asked, 2);
}

TEST(Messenger, AForwardedRequestIsAnsweredByWhoeverHasIt) {
    // Hands on what it gets, as the switchboard of a program does.
    class Switchboard : public BHandler {
    public:
        explicit Switchboard(BMessenger next) : fNext(next) {}
        void MessageReceived(BMessage& message) override { fNext.SendMessage(std::move(message)); }

    private:
        BMessenger fNext;
    };
    Noter noter;
    Switchboard switchboard{BMessenger(&noter)};
    RunningLooper first;
    RunningLooper second;
    first.AddHandler(&switchboard);
    second.AddHandler(&noter);
    BMessage answer;
    EXPECT_EQ(BMessenger(&switchboard).SendMessage(BMessage("done"_code), &answer, kLong),
              BSendResult::Ok);
    EXPECT_EQ(answer.what, "okay"_code);
    second.Quit();
    EXPECT_EQ(BMessenger(&switchboard).SendMessage(BMessage("done"_code), &answer, kLong),
              BSendResult::Ok);
    EXPECT_EQ(answer.what, 0u) << "let go on the way";
    first.Stop();
}

TEST(Messenger, AQuestionTimesOutAndItsLateAnswerIsDropped) {
    ForeignLooper looper;
    BMessage answer("mine"_code);
    EXPECT_EQ(BMessenger(&looper).SendMessage(BMessage("done"_code), &answer, 1ms),
              BSendResult::TimedOut);
    looper.DispatchPending(1);
    EXPECT_EQ(answer.what, "mine"_code);
    EXPECT_EQ(BMessenger(&looper).SendMessage(BMessage("done"_code), &answer), BSendResult::Refused)
        << "the looper would wait for itself";
}

TEST(Messenger, WithoutAnApplicationThereIsNobodyElsewhere) {
    BMessage answer;
    for (const BMessenger& messenger : {BMessenger(), BMessenger(1, -1), BMessenger(-5, 3)}) {
        EXPECT_FALSE(messenger.IsValid());
        EXPECT_EQ(messenger.SendMessage("none"_code), BSendResult::NoTarget);
        EXPECT_EQ(messenger.SendMessage(BMessage("none"_code), &answer), BSendResult::NoTarget);
        int asked = 0;
        messenger.Ask(BMessage("none"_code), [&](BSendResult result, const BMessage&) {
            EXPECT_EQ(result, BSendResult::NoTarget);
            ++asked;
        });
        EXPECT_EQ(asked, 1);
    }
}

}  // namespace
