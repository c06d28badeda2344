// The restore start dialog with its real widgets, in front of a server that answers by script.
#include "client/catalogue/KTRestoreStartWin.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include "client/catalogue/KTPasswordListView.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

// "protected" or "result" for each name, in the order given.
BMessage Reply(const char* field, const std::vector<std::pair<std::string, int32_t>>& values) {
    BMessage reply("ktpr"_code);
    for (const auto& [name, value] : values) {
        reply.Add("name", name);
        reply.Add(field, value);
    }
    return reply;
}

BMessage Backups(const std::vector<std::string>& names) {
    BMessage backups("rssl"_code);
    for (const std::string& name : names) {
        backups.Add("title", "Title of " + name);
        backups.Add("name", name);
        backups.Add("date", "Sun Nov 22 20:15:30 2026");
    }
    return backups;
}

std::vector<std::string> Strings(const BMessage& message, const char* field) {
    std::vector<std::string> all;
    for (int32_t i = 0; i < message.Count(field); ++i)
        all.push_back(message.Get(field, std::string(), i));
    return all;
}

using Names = std::vector<std::string>;

class RestoreStart : public ::testing::Test {
protected:
    RestoreStart() {
        parent.resize(700, 500);
        parent.show();
    }
    ~RestoreStart() override { delete dialog; }

    void Open(const BMessage& settings = {}) {
        dialog = new KTRestoreStartWin(desk.Context(), "Start Restore", &parent, settings,
                                       "resq"_code, BMessenger(&tool));
        dialog->show();
        dialog->activateWindow();
        Settle();
    }
    void Send(BMessage message) {
        BMessenger(dialog.data()).SendMessage(std::move(message));
        Settle();
    }
    // The tool names these, and the server calls all of them protected.
    void OpenWithProtected(const Names& names) {
        Open();
        desk.server.answer = [](const BMessage& question) {
            BMessage reply("ktpr"_code);
            for (const std::string& name : Strings(question, "name")) {
                reply.Add("name", name);
                reply.Add("protected", int32_t{1});
            }
            return reply;
        };
        Send(Backups(names));
        ASSERT_EQ(List()->Rows().Count(), static_cast<int32_t>(names.size()));
    }
    void Type(int row, const char* password) {
        List()->EditCell(List()->RowAtIndex(row), 2);
        auto* editor = List()->findChild<QLineEdit*>();
        ASSERT_TRUE(editor);
        QTest::keyClicks(editor, password);
        List()->FinishEditing();
        Settle();
    }
    void Ok() {
        Button("btn_ok")->click();
        Settle();
    }
    KTPasswordListView* List() { return dialog->findChild<KTPasswordListView*>("lst_passwords"); }
    QPushButton* Button(const char* name) { return dialog->findChild<QPushButton*>(name); }
    QLabel* Label(const char* name) { return dialog->findChild<QLabel*>(name); }
    QString Cell(int row, int column) {
        return List()->IndexOf(List()->RowAtIndex(row), column).data().toString();
    }
    const BMessage& Asked() { return desk.server.asked.back(); }

    Desk desk;
    Listener tool;
    QWidget parent;
    QPointer<KTRestoreStartWin> dialog;
};

TEST_F(RestoreStart, WithoutProtectedBackupsItConfirmsAtOnceAndHandsBackWhatWasTyped) {
    BMessage settings;
    settings.Add("title", "Häuschen");
    settings.Add("submitonhold", int32_t{1});
    settings.Add("password", "of old");
    Open(settings);
    EXPECT_EQ(dialog->findChild<QLineEdit*>("str_title")->text(), "Häuschen");
    desk.server.answer = [](const BMessage&) {
        return Reply("protected", {{"a", 0}, {"b", 0}, {"other", 1}});
    };
    Send(Backups({"a", "b"}));
    EXPECT_EQ(Asked().what, "ktpc"_code);
    EXPECT_EQ(Strings(Asked(), "name"), (Names{"a", "b"}));
    EXPECT_FALSE(Asked().Has("pw"));
    EXPECT_FALSE(List()->isVisible());
    EXPECT_TRUE(Label("str_noneprotected")->isVisible());

    dialog->findChild<QLineEdit*>("str_title")->setText("Dach");
    dialog->findChild<QCheckBox*>("chk_submitonhold")->setChecked(false);
    Ok();
    EXPECT_EQ(desk.server.asked.size(), 1u);
    ASSERT_EQ(tool.heard.size(), 1u);
    EXPECT_EQ(tool.heard[0].what, "resq"_code);
    EXPECT_TRUE(tool.heard[0].Get("result", false));
    const BMessage info = tool.heard[0].Get("settings", BMessage());
    EXPECT_EQ(info.FindString("title"), "Dach");
    EXPECT_EQ(info.Find<int32_t>("submitonhold"), 0);
    EXPECT_TRUE(info.Has("winpos"));
    EXPECT_FALSE(info.Has("password"));
}

TEST_F(RestoreStart, KeepsOfTheListWhatIsProtectedAndWhatWasTyped) {
    Open();
    // The answer's own order counts, of two entries of a name the first.
    desk.server.answer = [](const BMessage&) {
        return Reply("protected", {{"d", 1}, {"c", 5}, {"a", 1}, {"b", 0}, {"b", 1}});
    };
    Send(Backups({"a", "b", "c", "e"}));
    ASSERT_EQ(List()->Rows().Count(), 2);
    EXPECT_EQ(Cell(0, 0), "Title of a");
    EXPECT_EQ(Cell(0, 1), "Sun Nov 22 20:15:30 2026");
    EXPECT_EQ(Cell(0, 2), "");
    EXPECT_EQ(Cell(1, 3), "c");
    Type(1, "g b");
    EXPECT_EQ(Cell(1, 2), QString(8, QChar(0x2022)));

    Send(Backups({"d", "c"}));
    ASSERT_EQ(List()->Rows().Count(), 2);
    EXPECT_EQ(Cell(0, 2), "");
    EXPECT_EQ(Cell(1, 2), QString(8, QChar(0x2022)));
    Ok();
    EXPECT_EQ(Asked().what, "ktpc"_code);
    EXPECT_EQ(Strings(Asked(), "name"), (Names{"d", "c"}));
    EXPECT_EQ(Strings(Asked(), "pw"), (Names{" ", "g b"}));
    EXPECT_FALSE(Asked().Has("title"));
    EXPECT_FALSE(Asked().Has("date"));

    Send(BMessage("rssl"_code));
    EXPECT_EQ(List()->Rows().Count(), 0);
    EXPECT_TRUE(Label("str_noneprotected")->isVisible());
    Send(Backups({"c"}));
    EXPECT_EQ(Cell(0, 2), "") << "forgotten with the list";
}

TEST_F(RestoreStart, TheFirstResultOfTheAnswerDecides) {
    OpenWithProtected({"a", "b", "c"});
    Type(0, "x");
    // Wrong, although every entry after the first says otherwise; "a" is not in the answer.
    desk.server.answer = [](const BMessage&) {
        return Reply("result", {{"z", 0}, {"c", 1}, {"b", 1}});
    };
    Ok();
    ASSERT_EQ(desk.dialogs.Alerts().size(), 1u);
    EXPECT_EQ(desk.dialogs.Alerts()[0].title, "RestoreStart");
    EXPECT_EQ(desk.dialogs.Alerts()[0].text, "Paßworteingabe nicht korrekt!");
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(tool.heard.empty());
    EXPECT_EQ(List()->CurrentSelection(), List()->RowAtIndex(1)) << "the first that is named";
    EXPECT_TRUE(List()->hasFocus());
    EXPECT_EQ(Cell(0, 2).size(), 8) << "what was typed stays";

    // Right, although the others say otherwise.
    desk.server.answer = [](const BMessage&) {
        return Reply("result", {{"a", 1}, {"b", 0}, {"c", 0}});
    };
    Ok();
    EXPECT_EQ(desk.dialogs.Alerts().size(), 1u);
    ASSERT_EQ(tool.heard.size(), 1u);
    EXPECT_TRUE(tool.heard[0].Get("result", false));
}

TEST_F(RestoreStart, WhatIsBeingTypedCountsAndIsKeptNowhereElse) {
    OpenWithProtected({"a"});
    desk.server.answer = [](const BMessage&) { return Reply("result", {{"a", 1}}); };
    QTest::mouseClick(List()->viewport(), Qt::LeftButton, Qt::NoModifier,
                      List()->visualRect(List()->IndexOf(List()->RowAtIndex(0), 2)).center());
    auto* editor = List()->findChild<QLineEdit*>();
    ASSERT_TRUE(editor);
    EXPECT_EQ(editor->echoMode(), QLineEdit::Password);
    QTest::keyClicks(editor, "geheim");
    Send(BMessage(" ok "_code));  // as the button does, the editor still open
    EXPECT_EQ(Strings(Asked(), "pw"), Names{"geheim"});
    ASSERT_EQ(tool.heard.size(), 1u);
    const Bytes answer = tool.heard[0].Flatten();
    EXPECT_EQ(std::string(answer.begin(), answer.end()).find("geheim"), std::string::npos);
}

TEST_F(RestoreStart, AListThatComesWhileOneTypesTakesThePasswordToItsBackup) {
    OpenWithProtected({"a", "b"});
    List()->EditCell(List()->RowAtIndex(0), 2);
    QTest::keyClicks(List()->findChild<QLineEdit*>(), "of a");
    Send(Backups({"b", "a"}));
    EXPECT_EQ(Cell(0, 2), "");
    EXPECT_EQ(Cell(1, 2).size(), 8);
    Ok();
    EXPECT_EQ(Strings(Asked(), "name"), (Names{"b", "a"}));
    EXPECT_EQ(Strings(Asked(), "pw"), (Names{" ", "of a"}));
}

TEST_F(RestoreStart, AnEditorOpensEmptyAndLeftUntouchedChangesNothing) {
    OpenWithProtected({"a"});
    Type(0, "geheim");
    const KTRow row = List()->RowAtIndex(0);
    EXPECT_EQ(List()->IndexOf(row, 2).data(Qt::EditRole).toString(), "");
    EXPECT_NE(List()->Rows().TextAt(row, 2), "geheim");
    List()->EditCell(row, 2);
    EXPECT_EQ(List()->findChild<QLineEdit*>()->text(), "");
    List()->FinishEditing();
    Settle();
    Ok();
    EXPECT_EQ(Strings(Asked(), "pw"), Names{"geheim"});
    desk.server.answers.clear();
    List()->EditCell(row, 2);
    auto* editor = List()->findChild<QLineEdit*>();
    QTest::keyClicks(editor, "x");
    QTest::keyClick(editor, Qt::Key_Backspace);
    List()->FinishEditing();
    Settle();
    Ok();
    EXPECT_EQ(Strings(Asked(), "pw"), Names{" "}) << "emptied again";
}

TEST_F(RestoreStart, TheKeyboardAloneTypesAllPasswords) {
    OpenWithProtected({"a", "b"});
    desk.server.answer = [](const BMessage&) { return Reply("result", {{"a", 1}, {"b", 1}}); };
    List()->setFocus();
    QTest::keyClick(List(), Qt::Key_Return);
    for (const char* password : {"one", "two"}) {
        auto* editor = qobject_cast<QLineEdit*>(QApplication::focusWidget());
        ASSERT_TRUE(editor) << password;
        QTest::keyClicks(editor, password);
        QTest::keyClick(editor, Qt::Key_Return);
        Settle();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    EXPECT_TRUE(List()->hasFocus());
    EXPECT_TRUE(dialog->isVisible());
    QTest::keyClick(List(), Qt::Key_Return);
    Settle();
    EXPECT_EQ(Strings(Asked(), "pw"), (Names{"one", "two"}));
    EXPECT_EQ(tool.heard.size(), 1u);
}

TEST_F(RestoreStart, WhileTheAnswerIsOutItCanOnlyBeCancelled) {
    OpenWithProtected({"a"});
    desk.server.keepsWaiting = true;
    Button("btn_ok")->setFocus();
    Ok();
    EXPECT_FALSE(Button("btn_ok")->isEnabled());
    EXPECT_FALSE(List()->isEnabled());
    EXPECT_FALSE(Button("btn_cancel")->hasFocus()) << "where a second Return would end it all";
    EXPECT_NE(Label("str_hint")->text(), "");
    const size_t asked = desk.server.asked.size();
    Send(BMessage(" ok "_code));
    EXPECT_EQ(desk.server.asked.size(), asked);

    // Another selection makes the question an old one.
    Send(Backups({"b"}));
    ASSERT_EQ(desk.server.waiting.size(), 2u);
    desk.server.waiting[0](BSendResult::Ok, Reply("result", {{"a", 1}}));
    Settle();
    EXPECT_TRUE(tool.heard.empty());
    desk.server.waiting[1](BSendResult::Ok, Reply("protected", {{"b", 1}}));
    Settle();
    EXPECT_TRUE(Button("btn_ok")->isEnabled());
    EXPECT_TRUE(List()->isEnabled());
    EXPECT_EQ(Cell(0, 3), "b");

    Ok();
    Button("btn_cancel")->click();
    Settle();
    ASSERT_EQ(tool.heard.size(), 1u);
    EXPECT_FALSE(tool.heard[0].Get("result", true));
    desk.server.waiting[2](BSendResult::Ok, Reply("result", {{"b", 1}}));  // nobody is left
    Settle();
    EXPECT_EQ(tool.heard.size(), 1u);
}

TEST_F(RestoreStart, ASilentServerIsSaidAndNothingIsStartedBlindly) {
    Open();
    dialog->SetPatience(std::chrono::milliseconds(20));
    desk.server.keepsWaiting = true;
    Send(Backups({"a"}));
    ASSERT_TRUE(WaitFor([&] { return desk.dialogs.Alerts().size() == 1; }));
    EXPECT_EQ(desk.dialogs.Alerts()[0].text, "The backup server does not answer.");
    desk.server.waiting[0](BSendResult::Ok, Reply("protected", {{"a", 0}}));
    Settle();
    EXPECT_TRUE(Button("btn_ok")->isEnabled());

    // It is asked again, and what it says then counts.
    desk.server.keepsWaiting = false;
    desk.server.answer = [](const BMessage&) { return BMessage(); };
    Ok();
    EXPECT_EQ(desk.dialogs.Alerts().size(), 2u);
    EXPECT_TRUE(tool.heard.empty());
    desk.server.answer = [](const BMessage&) { return Reply("protected", {{"a", 1}}); };
    Ok();
    EXPECT_EQ(List()->Rows().Count(), 1);
    EXPECT_TRUE(tool.heard.empty());
    desk.server.answer = [](const BMessage&) { return BMessage(); };
    Ok();
    EXPECT_EQ(desk.dialogs.Alerts().size(), 3u);
    EXPECT_TRUE(dialog->isVisible());
    desk.server.answer = [](const BMessage&) { return Reply("result", {{"a", 1}}); };
    Ok();
    EXPECT_EQ(tool.heard.size(), 1u);
}

TEST_F(RestoreStart, SaysWhereTheFirstItemGoesInOneLine) {
    Open();
    EXPECT_FALSE(Label("str_landing")->isVisible()) << "a compare has no such place";
    BMessage landing("rslp"_code);
    landing.Add("source", "/20261122T201530-0000001a/Data/home/a");
    landing.Add("target", "");
    Send(landing);
    EXPECT_EQ(Label("str_landing")->text(), "--");
    const int width = dialog->width();
    landing.Set("target", "/" + std::string(300, 'x') + "\n<b>");
    Send(landing);
    EXPECT_TRUE(Label("str_landing")->isVisible());
    EXPECT_EQ(Label("str_landing")->text(), QString("/" + QString(300, 'x') + "\\x0A<b>"));
    EXPECT_EQ(dialog->width(), width);
}

TEST_F(RestoreStart, RemembersTheWidthsOfItsColumns) {
    desk.preferences.Set("RSTPWCOLWIDTH", 133.0F);
    OpenWithProtected({"a"});
    EXPECT_EQ(List()->columnWidth(2), 133);
    List()->ColumnWidthChanged(3, 77);
    EXPECT_EQ(desk.preferences.GetFloat("RSTNAMECOLWIDTH", 0), 77);
}

}  // namespace
