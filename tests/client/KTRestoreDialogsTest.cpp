// The smaller dialogs of the restore tool, with their real widgets.
#include <gtest/gtest.h>

#include <QAbstractTextDocumentLayout>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>
#include <QTextTable>

#include "client/catalogue/KTUnlockWindow.h"
#include "client/restore/KTResDeleteWindow.h"
#include "client/restore/KTResSettingWindow.h"
#include "client/restore/KTRestoreGetInfoWindow.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

class RestoreDialogs : public DialogTest<QDialog> {
protected:
    void OpenSettings(const BMessage& settings) {
        Show(new KTResSettingWindow("Restore Settings", &parent, settings, "rssq"_code,
                                    BMessenger(&tool)));
    }
    // What the tool heard since it was asked last: code and "divert", or "result".
    using Heard = std::vector<std::pair<std::string, int32_t>>;
    Heard News() {
        Heard news;
        for (const BMessage& message : std::exchange(tool.heard, {})) {
            answer = message;
            news.emplace_back(CodeText(message.what),
                              message.what == "rsDV"_code
                                  ? message.Get<int32_t>("divert", -1)
                                  : static_cast<int32_t>(message.Get("result", false)));
        }
        return news;
    }
    BMessage Settings() { return answer.Get("settings", BMessage()); }

    BMessage answer;
};

TEST_F(RestoreDialogs, SettingsAreShownAndHandedBackOnOk) {
    BMessage settings = Made({{"createroot", 1}, {"divert", 1}, {"unknown", "kept"}});
    OpenSettings(settings);
    auto* overwrite = Find<QComboBox>("mnu_overwrite");
    EXPECT_EQ(overwrite->currentText(), "No") << "without \"overwrite\" the first";
    EXPECT_EQ(overwrite->itemText(1) + overwrite->itemText(2) + overwrite->itemText(3),
              "Only olderRenameYes");
    EXPECT_FALSE(IsChecked("chk_askoverwrite"));
    EXPECT_TRUE(IsChecked("chk_createroot"));
    EXPECT_FALSE(IsChecked("chk_emptydirs"));
    EXPECT_TRUE(IsChecked("chk_divert"));
    overwrite->setCurrentIndex(2);
    Press("chk_createroot");
    Press("chk_emptydirs");
    Press("btn_ok");
    EXPECT_EQ(News(), (Heard{{"rssq", 1}}));
    ExpectHas(Settings(), {{"overwrite", 2},
                           {"askoverwrite", 0},
                           {"createroot", 0},
                           {"createemptydirs", 1},
                           {"divert", 1}});
    EXPECT_EQ(Settings().Count("divert"), 1);
    EXPECT_EQ(Settings().FindString("unknown"), "kept");

    // An index from elsewhere marks nothing, and is left alone.
    settings.Add("overwrite", int32_t{7});
    OpenSettings(settings);
    Press("btn_ok");
    EXPECT_EQ(News(), (Heard{{"rssq", 1}}));
    EXPECT_EQ(Settings().Find<int32_t>("overwrite"), 7);
}

TEST_F(RestoreDialogs, DivertingShowsAtOnceAndIsTakenBackOnCancel) {
    OpenSettings(Made({{"divert", 1}}));
    Press("chk_divert");
    EXPECT_EQ(News(), (Heard{{"rsDV", 0}})) << "while it is open";
    Press("chk_divert");
    Press("chk_divert");
    EXPECT_EQ(News(), (Heard{{"rsDV", 1}, {"rsDV", 0}}));
    QTest::keyClick(dialog.data(), Qt::Key_Escape);
    Settle();
    EXPECT_EQ(News(), (Heard{{"rsDV", 1}, {"rssq", 0}}));

    OpenSettings(BMessage());
    Press("chk_divert");
    Press("btn_cancel");
    EXPECT_EQ(News(), (Heard{{"rsDV", 1}, {"rsDV", 0}, {"rssq", 0}}));

    OpenSettings(BMessage());
    Press("chk_divert");
    Press("btn_ok");
    EXPECT_EQ(News(), (Heard{{"rsDV", 1}, {"rssq", 1}})) << "nothing is taken back";
}

TEST_F(RestoreDialogs, DeletingNeedsMoreThanReturn) {
    BMessage settings = Made({{"deletedata", 1}});
    const auto open = [&] {
        auto* window =
            new KTResDeleteWindow("Delete", &parent, settings, "rdcl"_code, BMessenger(&tool));
        window->SetText("Home, Sun Nov 22 20:15:30 2026\n");
        Show(window);
    };
    open();
    EXPECT_EQ(Words("str_question"), "Do you really want to delete the following Backup entry(s)?");
    EXPECT_TRUE(IsChecked("chk_deletedata"));
    QTest::keyClick(dialog.data(), Qt::Key_Return);
    Settle();
    EXPECT_EQ(News(), (Heard{{"rdcl", 0}}));
    open();
    Press("chk_deletedata");
    Press("btn_ok");
    EXPECT_EQ(News(), (Heard{{"rdcl", 1}}));
    EXPECT_EQ(Settings().Find<int32_t>("deletedata"), 0);
}

TEST_F(RestoreDialogs, ALockedBackupAsksUntilThePasswordIsRight) {
    BMessage settings = Made({{"name", "20261122T201530-0000001a"},
                              {"title", "Home"},
                              {"date", "Sun Nov 22 20:15:30 2026"},
                              {"item", int64_t{17}}});
    Show(new KTUnlockWindow(desk.Context(), &parent, settings, "unlk"_code, BMessenger(&tool)));
    EXPECT_TRUE(Find<QLabel>("str_prompt")->text().contains("'Home, Sun Nov 22 20:15:30 2026'"));
    auto* field = Find<QLineEdit>("str_password");
    auto* hint = Find<QLabel>("str_hint");
    EXPECT_EQ(field->echoMode(), QLineEdit::Password);
    EXPECT_FALSE(Find<QPushButton>("btn_ok")->isEnabled()) << "nothing typed";
    const auto say = [&](int32_t result) {
        return Made("ktpr"_code, {{"name", "20261122T201530-0000001a"}, {"result", result}});
    };
    desk.server.answer = [&](const BMessage&) { return say(0); };
    QTest::keyClicks(field, "geheim");
    QTest::keyClick(field, Qt::Key_Return);
    Settle();
    ExpectIs(desk.server.asked.back(), "ktpc"_code,
             {{"name", "20261122T201530-0000001a"}, {"pw", "geheim"}});
    EXPECT_EQ(hint->text(), "Incorrect password! Please enter password again.");
    EXPECT_TRUE(field->hasFocus());
    EXPECT_EQ(field->selectedText().size(), 6);

    desk.server.answer = [](const BMessage&) { return BMessage(); };
    Press("btn_ok");
    EXPECT_EQ(hint->text(), "The backup server does not answer.");

    desk.server.keepsWaiting = true;
    Press("btn_ok");
    EXPECT_FALSE(Find<QPushButton>("btn_ok")->isEnabled());
    EXPECT_FALSE(field->isEnabled());
    EXPECT_TRUE(News().empty());
    desk.server.waiting.back()(BSendResult::Ok, say(1));
    Settle();
    EXPECT_EQ(News(), (Heard{{"unlk", 1}}));
    EXPECT_EQ(Settings().Find<int64_t>("item"), 17);
    const Bytes bytes = Settings().Flatten();
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()).find("geheim"), std::string::npos);
}

TEST_F(RestoreDialogs, InfoIsReadAsItIsAndGoesWithEscape) {
    BMessage info("RSID"_code);
    for (const auto& [label, value] :
         std::vector<std::pair<std::string, std::string>>{{"Name", "<b>letter</b>"},
                                                          {"Size", "12"},
                                                          {"Path", "/" + std::string(2000, 'x')},
                                                          {"Redirect", " "}}) {
        info.Add("RESINFOSPALTE1", label);
        info.Add("RESINFOSPALTE2", value);
    }
    Show(new KTRestoreGetInfoWindow(info, &parent));
    EXPECT_EQ(dialog->windowTitle(), "Get Info");
    EXPECT_EQ(Words("str_heading"), "<b>letter</b> info");
    auto* text = Find<QTextEdit>("txt_info");
    EXPECT_TRUE(text->textInteractionFlags() & Qt::TextSelectableByKeyboard);
    EXPECT_TRUE(text->isReadOnly());
    auto* table = text->document()->rootFrame()->childFrames().value(0);
    auto* cells = qobject_cast<QTextTable*>(table);
    ASSERT_TRUE(cells);
    EXPECT_EQ(cells->rows(), 4);
    const auto cell = [&](int row, int column) {
        QTextCursor cursor = cells->cellAt(row, column).firstCursorPosition();
        cursor.setPosition(cells->cellAt(row, column).lastPosition(), QTextCursor::KeepAnchor);
        return cursor.selectedText();
    };
    EXPECT_EQ(cell(0, 0), "Name");
    EXPECT_EQ(cell(0, 1), "<b>letter</b>");
    EXPECT_EQ(cell(1, 1), "12");
    EXPECT_LE(text->document()->idealWidth(), text->viewport()->width()) << "a long path breaks";
    QTest::keyClick(dialog.data(), Qt::Key_Escape);
    EXPECT_TRUE(WaitFor([&] { return dialog.isNull(); }));

    // A message without pairs still makes a window.
    KTRestoreGetInfoWindow empty(BMessage(), &parent);
    empty.show();
    Settle();
}

}  // namespace
