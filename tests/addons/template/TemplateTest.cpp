// The template of a destination works as docs/add-ons.md says it does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "addons/KTVolume.h"
#include "kit/storage/AddOnImage.h"

namespace {

class Template : public ::testing::Test {
protected:
    Template() : fImage(kit::AddOnImage::Load(TEMPLATE_ADDON)) {}

    std::unique_ptr<KTVolume> Made(const char* shelf) {
        if (!fImage) {
            ADD_FAILURE() << fImage.error().Text();
            return nullptr;
        }
        const auto instantiate =
            reinterpret_cast<instantiate_ktvolume_func>(fImage->Symbol("instantiate_ktvolume"));
        std::unique_ptr<KTVolume> volume(instantiate ? instantiate() : nullptr);
        if (!volume) {
            ADD_FAILURE() << "no object";
            return nullptr;
        }
        BMessage settings;
        settings.Add("shelf", shelf);
        volume->SetSettings(settings);
        return volume;
    }

    kit::Result<kit::AddOnImage> fImage;
};

std::span<const uint8_t> BytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

TEST_F(Template, ABackupAppearsWholeOrNotAtAll) {
    const auto volume = Made("first");
    ASSERT_TRUE(volume);
    ASSERT_TRUE(volume->CheckAccess());
    ASSERT_TRUE(volume->BeginBackup("one"));
    EXPECT_EQ(volume->BeginBackup("one").error().kind, kit::ErrorKind::Exists);
    auto writer = volume->CreateFile("one", "0001.tar");
    ASSERT_TRUE(writer);
    ASSERT_TRUE((*writer)->Write(BytesOf("hello, too much")));
    ASSERT_TRUE((*writer)->Truncate(5));
    ASSERT_TRUE((*writer)->Finish());
    EXPECT_THAT(*volume->ListBackups(), testing::ElementsAre("one.partial"));
    ASSERT_TRUE(volume->Publish("one"));

    const auto other = Made("first");
    ASSERT_TRUE(other);
    EXPECT_THAT(*other->ListBackups(), testing::ElementsAre("one"));
    EXPECT_EQ(other->ListFiles("one")->at(0).size, 5);
    std::string read(9, '?');
    const std::span into(reinterpret_cast<uint8_t*>(read.data()), read.size());
    EXPECT_EQ(*other->ReadAt("one", "0001.tar", 1, into), 4u);
    EXPECT_EQ(read, "ello?????");
    EXPECT_EQ(*other->ReadAt("one", "0001.tar", 99, into), 0u);

    EXPECT_TRUE(other->RemoveBackup("one"));
    EXPECT_EQ(other->RemoveBackup("one").error().kind, kit::ErrorKind::NotFound);
}

TEST_F(Template, SettingsComeBackWithTheNameOfTheAddOn) {
    const auto volume = Made("second");
    ASSERT_TRUE(volume);
    volume->SetOverwrite(true);
    BMessage settings;
    ASSERT_EQ(volume->Archive(&settings, true), 0);
    EXPECT_EQ(settings.FindString("addon"), "KTMemory");
    EXPECT_STREQ(volume->MediaName(), "second");

    const auto copy = Made("");
    ASSERT_TRUE(copy);
    EXPECT_FALSE(copy->CheckAccess());
    std::string problem;
    EXPECT_FALSE(copy->ApplySettings(BMessage(), BMessenger(), &problem));
    EXPECT_NE(problem, "");
    EXPECT_TRUE(copy->ApplySettings(settings, BMessenger(), &problem));
    EXPECT_TRUE(copy->IsOverwrite());
}

}  // namespace
