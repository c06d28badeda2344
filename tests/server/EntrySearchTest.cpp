// Finding entries by a part of their names: what is found, in which order, and that nothing on the
// disk makes it wrong or slow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "server/catalogue/EntrySearch.h"
#include "server/catalogue/NameIndex.h"
#include "tests/TemporaryFolder.h"
#include "tests/server/Trees.h"
#include "tests/support/MadeCatalogue.h"

namespace server {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EntrySearchTest : public testing::Test {
protected:
    std::string Add(const tests::MadeBackup& backup) {
        const std::string name = tests::AddCatalogue(fFolder.Path(), backup);
        EXPECT_TRUE(fStore.Open());
        return name;
    }
    std::vector<std::string> Paths(const std::string& text, int32_t most = EntrySearch::kUsual) {
        fAnswer = fSearch.Find(text, most);
        std::vector<std::string> paths;
        for (int32_t i = 0; i < fAnswer.Count("path"); ++i)
            paths.push_back(fAnswer.Get("path", std::string(), i));
        EXPECT_EQ(fAnswer.what, paths.empty() ? "NONE"_code : "KTfe"_code);
        return paths;
    }

    const TemporaryFolder fFolder;
    CatalogueStore fStore{fFolder / "catalogues"};
    std::vector<std::string> fDamaged;
    EntrySearch fSearch{fStore, [this](const std::string& backup, const kit::Error&) {
                            fDamaged.push_back(backup);
                        }};
    BMessage fAnswer;
};

TEST_F(EntrySearchTest, NamesOfAllBackupsWithTheirPlaces) {
    const auto first = Add({1, core::JobType::Full, 0, "", {"Alpha", "B\xff\xc4 alpha", "beta"}});
    const auto second = Add({2, core::JobType::Full, 0, "", {"ALPHABET", "b\xff\xe4", "gamma"}});
    EXPECT_THAT(Paths("alpha"), ElementsAre("/Data/folder/ALPHABET", "/Data/folder/Alpha",
                                            "/Data/folder/B\xff\xc4 alpha"));
    EXPECT_EQ(fAnswer.Get("backup", std::string()), second);
    EXPECT_EQ(fAnswer.Get("backup", std::string(), 2), first);
    EXPECT_EQ(fAnswer.Get<int32_t>("type", -9), 0);
    EXPECT_EQ(fAnswer.Get<int64_t>("size", -9), 8);
    EXPECT_EQ(fAnswer.Get<BTime>("date", {}).seconds, 1'500'000'000u);
    EXPECT_EQ(fAnswer.Get<int32_t>("index", 0), 3);
    EXPECT_FALSE(fAnswer.Has("more"));
    // Only A to Z have two sizes; all else is bytes.
    EXPECT_THAT(Paths("B\xff\xe4"), ElementsAre("/Data/folder/b\xff\xe4"));
    EXPECT_THAT(Paths("oLd"), ElementsAre("/Data/folder", "/Data/folder"));
    EXPECT_EQ(fAnswer.Get<int64_t>("size", 0), -1);
    EXPECT_THAT(Paths("data"), ElementsAre("/Data", "/Data"));
    EXPECT_EQ(fAnswer.Get<int32_t>("type", 0), 3);
    for (const char* nothing : {"", "alphab et", "a/", "Data/folder", "betagamma"})
        EXPECT_THAT(Paths(nothing), IsEmpty()) << nothing;
    EXPECT_THAT(Paths(std::string("a\0", 2)), IsEmpty());

    EXPECT_EQ(Paths("a", 6).size(), 6u);
    EXPECT_EQ(fAnswer.Get<int32_t>("more", 0), 1);
    const size_t all = Paths("a").size();
    EXPECT_EQ(Paths("a", static_cast<int32_t>(all)).size(), all);
    EXPECT_FALSE(fAnswer.Has("more"));
    EXPECT_EQ(Paths("a", -5).size(), 1u);
}

TEST_F(EntrySearchTest, AnIndexThatDoesNotFitIsMadeAnew) {
    const auto name = Add({1, core::JobType::Full, 0, "", {"one", "three", "two"}});
    EXPECT_THAT(Paths("three"), ElementsAre("/Data/folder/three"));
    const std::string path = fStore.NamesPathOf(name);
    const std::string whole = ReadWhole(path);
    // Cut anywhere, scratched anywhere: never anything but the right answer or a longer time.
    for (size_t at = 0; at < whole.size(); ++at) {
        WriteWhole(path, whole.substr(0, at));
        EXPECT_THAT(Paths("three"), ElementsAre("/Data/folder/three")) << at;
        EXPECT_EQ(ReadWhole(path), whole);
    }
    for (const size_t at : {size_t{0}, size_t{8}, size_t{12}, size_t{16}, size_t{23}}) {
        std::string scratched = whole;
        scratched[at] = static_cast<char>(scratched[at] + 1);
        WriteWhole(path, scratched);
        EXPECT_THAT(Paths("three"), ElementsAre("/Data/folder/three")) << at;
    }
    for (size_t at = 24; at < whole.size(); ++at) {
        std::string scratched = whole;
        scratched[at] = '\xff';
        WriteWhole(path, scratched);
        Paths("three");  // whatever it finds, it ends
    }
    EXPECT_THAT(fDamaged, IsEmpty());
}

TEST_F(EntrySearchTest, ADamagedCatalogueIsToldAndTheOthersAreSearched) {
    const auto good = Add({1, core::JobType::Full, 0, "", {"letter"}});
    const auto bad = Add({2, core::JobType::Full, 0, "", {"letter"}});
    {
        auto database = Database::OpenScratch(fStore.PathOf(bad));
        ASSERT_TRUE(database);
        ASSERT_TRUE(database->Execute("DELETE FROM entries WHERE id = 2"));
    }
    EXPECT_THAT(Paths("letter"), ElementsAre("/Data/folder/letter"));
    EXPECT_EQ(fAnswer.Get("backup", std::string()), good);
    EXPECT_THAT(fDamaged, testing::Contains(bad));
}

TEST_F(EntrySearchTest, TheIndexGoesWithTheBackup) {
    const auto name = Add({1, core::JobType::Full, 0, "", {"letter"}});
    Paths("letter");
    ASSERT_TRUE(std::filesystem::exists(fStore.NamesPathOf(name)));
    auto removal = fStore.BeginRemoval(name);
    ASSERT_TRUE(removal);
    ASSERT_TRUE(removal->Finish());
    fSearch.Prepare(name);
    EXPECT_FALSE(std::filesystem::exists(fStore.NamesPathOf(name)));
    EXPECT_THAT(Paths("letter"), IsEmpty());
    WriteWhole(fStore.NamesPathOf(name), "of a backup that is gone");
    ASSERT_TRUE(fStore.Open());
    EXPECT_FALSE(std::filesystem::exists(fStore.NamesPathOf(name)));
}

TEST_F(EntrySearchTest, ManyBlocksOfNames) {
    std::vector<std::string> files;
    for (int i = 0; i < 60'000; ++i)
        files.push_back("a file with a rather long name and a number " +
                        std::to_string(1'000'000 + i));
    Add({1, core::JobType::Full, 0, "", files});
    // Wherever a name is cut by a block, it is found, and what follows keeps its number.
    for (int i = 0; i < 60'000; i += 997) {
        const std::string number = std::to_string(1'000'000 + i);
        ASSERT_THAT(
            Paths("Number " + number),
            ElementsAre("/Data/folder/a file with a rather long name and a number " + number));
        ASSERT_EQ(fAnswer.Get<int32_t>("index", 0), i + 3);
    }
    EXPECT_EQ(Paths("number", EntrySearch::kMost).size(), size_t{EntrySearch::kMost});
}

}  // namespace
}  // namespace server
