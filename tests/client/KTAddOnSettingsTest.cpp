// Add-ons' settings windows, drawn from their descriptions.
#include "client/addons/KTAddOnSettings.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QPushButton>
#include <QSpinBox>

#include "client/addons/KTSizeField.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

class Owner : public KTSettingsOwner {
public:
    bool ApplySettings(const BMessage& values, const BMessenger&, std::string* words) override {
        applied.push_back(values);
        if (!problem.empty()) *words = problem;
        return problem.empty();
    }
    std::vector<BMessage> applied;
    std::string problem;
};

BMessage Field(const char* key, const char* kind) {
    return Made({{"key", key}, {"kind", kind}, {"label", key}});
}

BMessage Everything() {
    BMessage values = Made({{"path", "/med\xFF/a"},
                            {"remote", "box:"},
                            {"mode", 20},
                            {"level", 3},
                            {"mediasize", int64_t{4700372992}},
                            {"overwrite", 1},
                            {"unseen", 77}});
    BMessage description = Made({{"title", "Settings of <b>Test</b>"},
                                 {"values", values},
                                 {"field", Field("path", "path")},
                                 {"field", Field("remote", "string")}});
    BMessage mode = Field("mode", "choice");
    for (int64_t value : {10, 20, 30}) {
        mode.Add("choice", "Mode " + std::to_string(value));
        mode.Add("choice_value", value);
    }
    description.Add("field", mode);
    BMessage level = Field("level", "integer");
    level.Add("min", int64_t{1});
    level.Add("max", int64_t{19});
    description.Add("field", level);
    BMessage size = Field("mediasize", "size");
    size.Add("choice", "No limit");
    size.Add("choice_value", int64_t{0});
    size.Add("choice", "DVD");
    size.Add("choice_value", int64_t{4700372992});
    description.Add("field", size);
    description.Add("field", Field("overwrite", "check"));
    description.Add("field", Field("later", "holograph"));
    return description;
}

class AddOnSettings : public WidgetTest {
protected:
    AddOnSettings() { host.OpenSettings(Everything(), &owner, BMessenger()); }
    QWidget* Subject() override { return host.Window(); }
    void Confirm() { Press("btn_ok"); }

    ScriptedDialogs& dialogs = desk.dialogs;
    QWidget parent;
    Owner owner;
    KTAddOnSettings host{&parent};
};

TEST_F(AddOnSettings, UntouchedValuesComeBackAsTheyWere) {
    EXPECT_EQ(host.Window()->windowTitle(), "Settings of <b>Test</b>");
    EXPECT_EQ(Find<QLineEdit>("str_path")->text(), "/med\\xFF/a");
    EXPECT_EQ(Find<QComboBox>("mnu_mode")->currentText(), "Mode 20");
    EXPECT_EQ(Find<QSpinBox>("num_level")->maximum(), 19);
    EXPECT_EQ(Find<QComboBox>("mnu_mediasize")->currentText(), "DVD");
    Confirm();
    ASSERT_EQ(owner.applied.size(), 1u);
    EXPECT_EQ(owner.applied[0], Everything().Get("values", BMessage()))
        << "bytes that no text shows and fields that no control has included";
    EXPECT_FALSE(host.Window());
}

TEST_F(AddOnSettings, ChangesReachTheAddOn) {
    Find<QComboBox>("mnu_mode")->setCurrentIndex(2);
    Find<QSpinBox>("num_level")->setValue(99);
    Find<QCheckBox>("chk_overwrite")->setChecked(false);
    Find<QComboBox>("mnu_mediasize")->setCurrentIndex(2);  // other
    Find<QDoubleSpinBox>("num_mediasize")->setValue(1.5);
    Find<QComboBox>("unit_mediasize")->setCurrentIndex(3);
    Find<QPushButton>("btn_path")->click();
    ASSERT_EQ(dialogs.Panels().size(), 1u);
    EXPECT_EQ(dialogs.Panels()[0].request.kind, KTPanelRequest::Kind::Directory);
    EXPECT_EQ(dialogs.Panels()[0].request.directory, "/med\xFF/a");
    dialogs.Close("/mnt/\xFE");
    Confirm();
    ASSERT_EQ(owner.applied.size(), 1u);
    const BMessage& values = owner.applied[0];
    ExpectHas(values, {{"mode", 30},
                       {"level", 19},
                       {"overwrite", 0},
                       {"mediasize", int64_t{1610612736}},
                       {"path", "/mnt/\xFE"}});
}

TEST_F(AddOnSettings, ProblemIsSaidAndTheWindowStays) {
    owner.problem = "No such directory.";
    Confirm();
    ASSERT_EQ(dialogs.Alerts().size(), 1u);
    EXPECT_EQ(dialogs.Alerts()[0].text, "No such directory.");
    ASSERT_TRUE(host.Window());
    owner.problem.clear();
    Confirm();
    EXPECT_FALSE(host.Window());
    EXPECT_EQ(owner.applied.size(), 2u);
}

TEST_F(AddOnSettings, CancelAndAGoneOwnerApplyNothing) {
    Press("btn_cancel");
    EXPECT_FALSE(host.Window());
    host.OpenSettings(Everything(), &owner, BMessenger());
    QWidget* window = host.Window();
    host.OpenSettings(Everything(), &owner, BMessenger());
    EXPECT_EQ(host.Window(), window) << "one window for an owner";
    host.OwnerGoes(&owner);
    EXPECT_FALSE(host.Window());
    Settle();
    EXPECT_TRUE(owner.applied.empty());
}

TEST(KTSizeField, ShowsASizeSoThatItStaysTheSame) {
    for (const int64_t bytes : {int64_t{0}, int64_t{1}, int64_t{1023}, int64_t{16} << 20,
                                (int64_t{3} << 30) + 1, int64_t{5} << 40, int64_t{737280000}}) {
        const KTSizeField field("x", "x", {}, bytes);
        EXPECT_EQ(field.Value(), bytes);
    }
    EXPECT_EQ(KTSizeField("x", "x", {}, -5).Value(), 0);
    EXPECT_EQ(KTSizeField("x", "x", {{"One", 1}, {"Two", 2}}, 2).Value(), 2);
}

}  // namespace
