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

BMessage Backups(const Texts& names) {
    BMessage backups("rssl"_code);
    for (const std::string& name : names) {
        backups.Add("title", "Title of " + name);
        backups.Add("name", name);
        backups.Add("date", "Sun Nov 22 20:15:30 2026");
    }
    return backups;
}

class RestoreStart : public DialogTest<KTRestoreStartWin> {
protected:
    void Open(const BMessage& settings = {}) {
        Show(new KTRestoreStartWin(desk.Context(), "Start Restore", &parent, settings, "resq"_code,
                                   BMessenger(&tool)));
    }
    // The tool names these, and the server calls all of them protected.
    void OpenWithProtected(const Texts& names) {
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
    KTPasswordListView* List() { return Find<KTPasswordListView>("lst_passwords"); }
    QPushButton* Button(const char* name) { return Find<QPushButton>(name); }
    QLabel* Label(const char* name) { return Find<QLabel>(name); }
    QString Cell(int row, int column) {
        return List()->IndexOf(List()->RowAtIndex(row), column).data().toString();
    }
    const BMessage& Asked() { return desk.server.asked.back(); }
};

TEST_F(RestoreStart, WithoutProtectedBackupsItConfirmsAtOnceAndHandsBackWhatWasTyped) {
    Open(Made({{"title", "Häuschen"}, {"submitonhold", 1}, {"password", "of old"}}));
    EXPECT_EQ(dialog->findChild<QLineEdit*>("str_title")->text(), "Häuschen");
    desk.server.answer = [](const BMessage&) {
        return Reply("protected", {{"a", 0}, {"b", 0}, {"other", 1}});
    };
    Send(Backups({"a", "b"}));
    EXPECT_EQ(Asked().what, "ktpc"_code);
    EXPECT_EQ(Strings(Asked(), "name"), (Texts{"a", "b"}));
    EXPECT_FALSE(Asked().Has("pw"));
    EXPECT_FALSE(List()->isVisible());
    EXPECT_TRUE(Label("str_noneprotected")->isVisible());

    dialog->findChild<QLineEdit*>("str_title")->setText("Dach");
    dialog->findChild<QCheckBox*>("chk_submitonhold")->setChecked(false);
    Press("btn_ok");
    EXPECT_EQ(desk.server.asked.size(), 1u);
    ASSERT_EQ(tool.heard.size(), 1u);
    EXPECT_EQ(tool.heard[0].what, "resq"_code);
    EXPECT_TRUE(tool.heard[0].Get("result", false));
    const BMessage info = tool.heard[0].Get("settings", BMessage());
    ExpectHas(info, {{"title", "Dach"}, {"submitonhold", 0}});
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
    Press("btn_ok");
    EXPECT_EQ(Asked().what, "ktpc"_code);
    EXPECT_EQ(Strings(Asked(), "name"), (Texts{"d", "c"}));
    EXPECT_EQ(Strings(Asked(), "pw"), (Texts{" ", "g b"}));
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
    Press("btn_ok");
    EXPECT_EQ(desk.dialogs.Told(), Texts{"RestoreStart: Paßworteingabe nicht korrekt!"});
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(tool.heard.empty());
    EXPECT_EQ(List()->CurrentSelection(), List()->RowAtIndex(1)) << "the first that is named";
    EXPECT_TRUE(List()->hasFocus());
    EXPECT_EQ(Cell(0, 2).size(), 8) << "what was typed stays";

    // Right, although the others say otherwise.
    desk.server.answer = [](const BMessage&) {
        return Reply("result", {{"a", 1}, {"b", 0}, {"c", 0}});
    };
    Press("btn_ok");
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
    EXPECT_EQ(Strings(Asked(), "pw"), Texts{"geheim"});
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
    Press("btn_ok");
    EXPECT_EQ(Strings(Asked(), "name"), (Texts{"b", "a"}));
    EXPECT_EQ(Strings(Asked(), "pw"), (Texts{" ", "of a"}));
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
    Press("btn_ok");
    EXPECT_EQ(Strings(Asked(), "pw"), Texts{"geheim"});
    desk.server.answers.clear();
    List()->EditCell(row, 2);
    auto* editor = List()->findChild<QLineEdit*>();
    QTest::keyClicks(editor, "x");
    QTest::keyClick(editor, Qt::Key_Backspace);
    List()->FinishEditing();
    Settle();
    Press("btn_ok");
    EXPECT_EQ(Strings(Asked(), "pw"), Texts{" "}) << "emptied again";
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
    EXPECT_EQ(Strings(Asked(), "pw"), (Texts{"one", "two"}));
    EXPECT_EQ(tool.heard.size(), 1u);
}

TEST_F(RestoreStart, WhileTheAnswerIsOutItCanOnlyBeCancelled) {
    OpenWithProtected({"a"});
    desk.server.keepsWaiting = true;
    Button("btn_ok")->setFocus();
    Press("btn_ok");
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

    Press("btn_ok");
    Press("btn_cancel");
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
    Press("btn_ok");
    EXPECT_EQ(desk.dialogs.Alerts().size(), 2u);
    EXPECT_TRUE(tool.heard.empty());
    desk.server.answer = [](const BMessage&) { return Reply("protected", {{"a", 1}}); };
    Press("btn_ok");
    EXPECT_EQ(List()->Rows().Count(), 1);
    EXPECT_TRUE(tool.heard.empty());
    desk.server.answer = [](const BMessage&) { return BMessage(); };
    Press("btn_ok");
    EXPECT_EQ(desk.dialogs.Alerts().size(), 3u);
    EXPECT_TRUE(dialog->isVisible());
    desk.server.answer = [](const BMessage&) { return Reply("result", {{"a", 1}}); };
    Press("btn_ok");
    EXPECT_EQ(tool.heard.size(), 1u);
}

TEST_F(RestoreStart, SaysWhereTheFirstItemGoesInOneLine) {
    Open();
    EXPECT_FALSE(Label("str_landing")->isVisible()) << "a compare has no such place";
    BMessage landing =
        Made("rslp"_code, {{"source", "/20261122T201530-0000001a/Data/home/a"}, {"target", ""}});
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
