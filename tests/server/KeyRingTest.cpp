// Passwords of protected backups: who gets what opened, for how long, and who waits.
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <map>
#include <mutex>

#include "server/app/KeyRing.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

constexpr int32_t kAnna = 1001, kBert = 1002;
constexpr auto kPatience = std::chrono::seconds(20);
constexpr auto kForever = std::chrono::hours(1);

// Where the answers arrive.
class Answers {
public:
    void Put(int id, BMessage answer) {
        const std::lock_guard lock(fMutex);
        fAnswers.emplace(id, std::move(answer));
        fArrived.notify_all();
    }
    BMessage Wait(int id) {
        std::unique_lock lock(fMutex);
        EXPECT_TRUE(fArrived.wait_for(lock, kPatience, [&] { return fAnswers.contains(id); }));
        return fAnswers[id];
    }
    bool Has(int id) {
        const std::lock_guard lock(fMutex);
        return fAnswers.contains(id);
    }

private:
    std::mutex fMutex;
    std::condition_variable fArrived;
    std::map<int, BMessage> fAnswers;
};

class Delivery : public BDelivery {
public:
    Delivery(Answers& answers, int id, int32_t team) : fAnswers(answers), fId(id) {
        senderTeam = team;
        remote = waiting = true;
    }
    void Answer(BMessage&& answer) override { fAnswers.Put(fId, std::move(answer)); }

private:
    Answers& fAnswers;
    const int fId;
};

class KeyRingTest : public testing::Test {
protected:
    using Entries = std::vector<std::pair<std::string, std::string>>;

    std::string Save(std::string_view password) {
        fHouse.protection.reset();
        if (!password.empty()) fHouse.Protect(password);
        WriteWhole(fHouse.source + "/a", "a");
        return fHouse.Save();
    }
    // Asks, and gives what the answer will be found under.
    int Ask(KeyRing& ring, int32_t team, const Entries& entries, bool check = true) {
        BMessage question("ktpc"_code);
        for (const auto& [name, password] : entries) {
            question.Add("name", name);
            if (check) question.Add("pw", password);
        }
        question.SetDelivery(std::make_unique<Delivery>(fAnswers, ++fLast, team));
        ring.Check(question);
        return fLast;
    }
    std::vector<int32_t> Results(KeyRing& ring, int32_t team, const Entries& entries) {
        const BMessage answer = fAnswers.Wait(Ask(ring, team, entries));
        EXPECT_EQ(answer.what, "ktpr"_code);
        std::vector<int32_t> results;
        results.reserve(static_cast<size_t>(answer.Count("result")));
        for (int32_t i = 0; i < answer.Count("result"); ++i)
            results.push_back(answer.Get<int32_t>("result", -1, i));
        EXPECT_EQ(answer.Count("name"), answer.Count("result"));
        return results;
    }

    EngineHouse fHouse;
    Answers fAnswers;
    int fLast = 0;
};

TEST_F(KeyRingTest, ARightPasswordOpensItsBackupForItsClientsNextJob) {
    const std::string first = Save("one"), second = Save("two"), plain = Save("");
    KeyRing ring(*fHouse.catalogues, {}, {});
    const BMessage which =
        fAnswers.Wait(Ask(ring, kAnna, {{first, ""}, {"no such backup", ""}, {plain, ""}}, false));
    EXPECT_EQ(which.what, "ktpr"_code);
    ASSERT_EQ(which.Count("protected"), 2);
    EXPECT_EQ(which.Get("name", std::string(), 1), plain);
    EXPECT_EQ(which.Get<int32_t>("protected", -1, 0), 1);
    EXPECT_EQ(which.Get<int32_t>("protected", -1, 1), 0);

    using Right = std::vector<int32_t>;
    EXPECT_EQ(Results(ring, kAnna, {{first, "one"}, {second, "two"}, {plain, " "}}),
              (Right{1, 1, 1}));
    EXPECT_TRUE(ring.TakeFor(kBert).empty());
    const BackupKeys keys = ring.TakeFor(kAnna);
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys.at(first)->Recipient().Text(),
              fHouse.catalogues->Find(first)->protection.recipient);
    EXPECT_EQ(keys.at(second)->Recipient().Text(),
              fHouse.catalogues->Find(second)->protection.recipient);
    EXPECT_TRUE(ring.TakeFor(kAnna).empty());

    // The first result tells of all; the right one of two is open nevertheless.
    EXPECT_EQ(Results(ring, kAnna, {{first, "one"}, {second, "one"}}), (Right{0, 0}));
    EXPECT_EQ(Results(ring, kAnna, {{first, " "}}), (Right{0}));
    EXPECT_EQ(Results(ring, kAnna, {{plain, "whatever"}}), (Right{1}));
    EXPECT_EQ(ring.TakeFor(kAnna).size(), 1u);
    EXPECT_EQ(Results(ring, kAnna, {{first, "one"}}), (Right{1}));
    ring.TeamGone(kAnna);
    EXPECT_TRUE(ring.TakeFor(kAnna).empty());
}

TEST_F(KeyRingTest, AWrongPasswordSlowsItsClientAndNobodyElse) {
    const std::string backup = Save("one");
    const auto right = std::vector<int32_t>{1}, wrong = std::vector<int32_t>{0};
    {
        KeyRing ring(*fHouse.catalogues, {}, kForever);
        EXPECT_EQ(Results(ring, kAnna, {{backup, "guess"}}), wrong);
        const int barred = Ask(ring, kAnna, {{backup, "one"}});
        EXPECT_EQ(Results(ring, kBert, {{backup, "one"}}), right);
        EXPECT_EQ(ring.TakeFor(kBert).size(), 1u);
        // Nor is a new protected job held up.
        std::promise<bool> made;
        ring.Protect(archive::Secret(std::string_view("new")),
                     [&](const auto& protection) { made.set_value(protection.ok()); });
        EXPECT_TRUE(made.get_future().get());
        // What one only asks without a password is answered at once.
        EXPECT_TRUE(fAnswers.Has(Ask(ring, kAnna, {{backup, ""}}, false)));
        EXPECT_FALSE(fAnswers.Has(barred));
        // Who goes takes the question along, and comes back as another.
        ring.TeamGone(kAnna);
        EXPECT_EQ(Results(ring, kAnna, {{backup, "one"}}), right);
        Ask(ring, kBert, {{backup, "guess"}});
        Ask(ring, kBert, {{backup, "one"}});
    }  // a ring that goes waits for nobody

    KeyRing ring(*fHouse.catalogues, {}, std::chrono::milliseconds(60));
    const auto begin = KeyRing::Clock::now();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Results(ring, kAnna, {{backup, "guess"}}), wrong);
    EXPECT_EQ(Results(ring, kAnna, {{backup, "one"}}), right);
    EXPECT_GE(KeyRing::Clock::now() - begin, std::chrono::milliseconds(60 + 120 + 240));
}

}  // namespace
}  // namespace server
