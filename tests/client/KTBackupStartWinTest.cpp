// The start dialog with its real widgets.
#include "client/backup/KTBackupStartWin.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "client/uikit/KTRequestWindow.h"
#include "tests/client/BackupTesting.h"

using namespace backup_testing;

namespace {

class StartDialog : public DialogTest<KTBackupStartWin> {
protected:
    void Open(const BMessage& settings = {}) {
        Show(new KTBackupStartWin("Start Backup", &parent, settings, "bsqt"_code,
                                  BMessenger(&tool)));
    }
    void Return(QLineEdit* field) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, "\r");
        QCoreApplication::sendEvent(field, &press);
        Settle();
    }
    QList<KTRequestWindow*> Errors() {
        QList<KTRequestWindow*> open;
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (auto* error = qobject_cast<KTRequestWindow*>(widget); error && error->isVisible())
                open << error;
        return open;
    }
    BMessage Info() { return tool.heard.back().Get("settings", BMessage()); }
};

TEST_F(StartDialog, HandsBackWhatWasTyped) {
    Open(Made({{"title", "Home"}, {"submitonhold", 1}, {"password", "of old"}}));
    EXPECT_EQ(Field("str_title")->text(), "Home");
    EXPECT_EQ(Field("str_password")->text(), "") << "never shown again";
    EXPECT_EQ(Field("str_password")->echoMode(), QLineEdit::Password);
    EXPECT_EQ(Field("str_password2")->echoMode(), QLineEdit::Password);
    EXPECT_FALSE(Field("str_password")->isEnabled());
    Field("str_title")->setText("Häuschen");
    Press("chk_password");
    EXPECT_TRUE(Field("str_password2")->isEnabled());
    Field("str_password")->setText("a b");
    Field("str_password2")->setText("a b");
    Press("chk_submitonhold");
    Press("btn_ok");
    ASSERT_EQ(tool.heard.size(), 1u);
    EXPECT_EQ(tool.heard[0].what, "bsqt"_code);
    EXPECT_TRUE(tool.heard[0].Get("result", false));
    ExpectHas(Info(), {{"title", "Häuschen"}, {"passonoff", 1}, {"password", "a b"}});
    EXPECT_EQ(Info().Count("password"), 1);
    EXPECT_EQ(Info().Find<int32_t>("submitonhold"), 0);
    EXPECT_TRUE(Info().Has("winpos"));
}

TEST_F(StartDialog, MismatchStopsItAndIsSaidOnce) {
    Open();
    Press("chk_password");
    Field("str_password")->setText("one");
    Field("str_password2")->setText("two");
    for (int again = 0; again < 3; ++again)
        Return(Field("str_password2"));
    Press("btn_ok");
    EXPECT_TRUE(tool.heard.empty());
    EXPECT_TRUE(dialog->isVisible());
    ASSERT_EQ(Errors().size(), 1);
    EXPECT_EQ(Errors()[0]->windowTitle(), "Password Error");
    EXPECT_EQ(Errors()[0]->findChild<QLabel*>("str_text")->text(),
              "Incorrect password! Please enter password again.");
    Field("str_password2")->setFocus();
    Click(Errors()[0], "btn0");
    EXPECT_TRUE(Errors().isEmpty());
    EXPECT_EQ(dialog->focusWidget(), Field("str_password"));

    Return(Field("str_password2"));
    EXPECT_EQ(Errors().size(), 1) << "a later mismatch is said again";
    Press("btn_cancel");
    EXPECT_TRUE(Errors().isEmpty()) << "it goes with the dialog";
    ASSERT_EQ(tool.heard.size(), 1u);
    EXPECT_FALSE(tool.heard[0].Get("result", true));
}

TEST_F(StartDialog, WithoutItsBoxPasswordsAreNotCompared) {
    Open();
    Press("chk_password");
    Field("str_password")->setText("one");
    Press("chk_password");
    EXPECT_FALSE(Field("str_password")->isEnabled());
    EXPECT_FALSE(Field("str_password2")->isEnabled());
    EXPECT_FALSE(Field("str_password")->hasFocus());
    Press("btn_ok");
    ASSERT_EQ(tool.heard.size(), 1u);
    EXPECT_EQ(Info().Find<int32_t>("passonoff"), 0);
    EXPECT_EQ(Info().FindString("password"), "one") << "the flag decides, not the text";
}

TEST_F(StartDialog, WhatBuildsOnAnotherBackupIsAskedForNoPassword) {
    for (const int32_t next : {0, 1}) {
        Open(Made({{"passonoff", next}}));
        dialog->MakePasswordEditable(false);
        EXPECT_FALSE(Find<QCheckBox>("chk_password")->isEnabled());
        EXPECT_FALSE(Find<QCheckBox>("chk_password")->isChecked());
        EXPECT_FALSE(Field("str_password")->isEnabled());
        EXPECT_TRUE(Words("str_hint").startsWith("Protected as the backup is"));
        Press("btn_ok");
        EXPECT_EQ(Info().Find<int32_t>("passonoff"), next) << "of the next full backup";
        EXPECT_EQ(Info().FindString("password"), "");
    }
}

TEST_F(StartDialog, ReturnMovesOnAndStartsNothing) {
    Open();
    Press("chk_password");
    EXPECT_EQ(dialog->focusWidget(), Field("str_password"));
    Field("str_password")->setText("x");
    Return(Field("str_password"));
    EXPECT_EQ(dialog->focusWidget(), Field("str_password2"));
    Field("str_password2")->setText("x");
    Return(Field("str_password2"));
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(tool.heard.empty());
    EXPECT_TRUE(Errors().isEmpty());
    Return(Field("str_title"));
    EXPECT_EQ(tool.heard.size(), 1u) << "elsewhere it is the confirm button";
}

TEST_F(StartDialog, SaysWhatThePasswordMeans) {
    Open();
    EXPECT_EQ(Words("str_hint"), "");
    Press("chk_password");
    const QString none = Words("str_hint");
    EXPECT_TRUE(none.contains("not be protected"));
    Field("str_password")->setText("x");
    EXPECT_NE(Words("str_hint"), none);
    dialog->MakeTitleEditable(false);
    EXPECT_FALSE(dialog->IsTitleEditable());
    EXPECT_FALSE(Field("str_title")->isEnabled());
}

}  // namespace
