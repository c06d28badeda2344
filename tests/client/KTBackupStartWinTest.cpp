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

class StartDialog : public ::testing::Test {
protected:
    StartDialog() { parent.show(); }
    ~StartDialog() override { delete dialog; }

    void Open(const BMessage& settings = {}) {
        dialog = new KTBackupStartWin("Start Backup", &parent, settings, "bsqt"_code,
                                      BMessenger(&target));
        dialog->show();
        dialog->activateWindow();
        Settle();
    }
    template <class T>
    T* Find(const char* name) {
        return dialog->findChild<T*>(name);
    }
    QLineEdit* Field(const char* name) { return Find<QLineEdit>(name); }
    void Click(const char* name) {
        Find<QAbstractButton>(name)->click();
        Settle();
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
    BMessage Info() { return target.heard.back().Get("settings", BMessage()); }

    Listener target;
    QWidget parent;
    QPointer<KTBackupStartWin> dialog;
};

TEST_F(StartDialog, HandsBackWhatWasTyped) {
    BMessage settings;
    settings.Add("title", "Home");
    settings.Add("submitonhold", int32_t{1});
    settings.Add("password", "of old");
    Open(settings);
    EXPECT_EQ(Field("str_title")->text(), "Home");
    EXPECT_EQ(Field("str_password")->text(), "") << "never shown again";
    EXPECT_EQ(Field("str_password")->echoMode(), QLineEdit::Password);
    EXPECT_EQ(Field("str_password2")->echoMode(), QLineEdit::Password);
    EXPECT_FALSE(Field("str_password")->isEnabled());
    Field("str_title")->setText("Häuschen");
    Click("chk_password");
    EXPECT_TRUE(Field("str_password2")->isEnabled());
    Field("str_password")->setText("a b");
    Field("str_password2")->setText("a b");
    Click("chk_submitonhold");
    Click("btn_ok");
    ASSERT_EQ(target.heard.size(), 1u);
    EXPECT_EQ(target.heard[0].what, "bsqt"_code);
    EXPECT_TRUE(target.heard[0].Get("result", false));
    EXPECT_EQ(Info().FindString("title"), "Häuschen");
    EXPECT_EQ(Info().Find<int32_t>("passonoff"), 1);
    EXPECT_EQ(Info().FindString("password"), "a b");
    EXPECT_EQ(Info().Count("password"), 1);
    EXPECT_EQ(Info().Find<int32_t>("submitonhold"), 0);
    EXPECT_TRUE(Info().Has("winpos"));
}

TEST_F(StartDialog, MismatchStopsItAndIsSaidOnce) {
    Open();
    Click("chk_password");
    Field("str_password")->setText("one");
    Field("str_password2")->setText("two");
    for (int again = 0; again < 3; ++again)
        Return(Field("str_password2"));
    Click("btn_ok");
    EXPECT_TRUE(target.heard.empty());
    EXPECT_TRUE(dialog->isVisible());
    ASSERT_EQ(Errors().size(), 1);
    EXPECT_EQ(Errors()[0]->windowTitle(), "Password Error");
    EXPECT_EQ(Errors()[0]->findChild<QLabel*>("str_text")->text(),
              "Incorrect password! Please enter password again.");
    Field("str_password2")->setFocus();
    Errors()[0]->findChild<QPushButton*>("btn0")->click();
    Settle();
    EXPECT_TRUE(Errors().isEmpty());
    EXPECT_EQ(dialog->focusWidget(), Field("str_password"));

    Return(Field("str_password2"));
    EXPECT_EQ(Errors().size(), 1) << "a later mismatch is said again";
    Click("btn_cancel");
    EXPECT_TRUE(Errors().isEmpty()) << "it goes with the dialog";
    ASSERT_EQ(target.heard.size(), 1u);
    EXPECT_FALSE(target.heard[0].Get("result", true));
}

TEST_F(StartDialog, WithoutItsBoxPasswordsAreNotCompared) {
    Open();
    Click("chk_password");
    Field("str_password")->setText("one");
    Click("chk_password");
    EXPECT_FALSE(Field("str_password")->isEnabled());
    EXPECT_FALSE(Field("str_password2")->isEnabled());
    EXPECT_FALSE(Field("str_password")->hasFocus());
    Click("btn_ok");
    ASSERT_EQ(target.heard.size(), 1u);
    EXPECT_EQ(Info().Find<int32_t>("passonoff"), 0);
    EXPECT_EQ(Info().FindString("password"), "one") << "the flag decides, not the text";
}

TEST_F(StartDialog, WhatBuildsOnAnotherBackupIsAskedForNoPassword) {
    for (const int32_t next : {0, 1}) {
        BMessage settings;
        settings.Add("passonoff", next);
        Open(settings);
        dialog->MakePasswordEditable(false);
        EXPECT_FALSE(Find<QCheckBox>("chk_password")->isEnabled());
        EXPECT_FALSE(Find<QCheckBox>("chk_password")->isChecked());
        EXPECT_FALSE(Field("str_password")->isEnabled());
        EXPECT_TRUE(Find<QLabel>("str_hint")->text().startsWith("Protected as the backup is"));
        Click("btn_ok");
        EXPECT_EQ(Info().Find<int32_t>("passonoff"), next) << "of the next full backup";
        EXPECT_EQ(Info().FindString("password"), "");
    }
}

TEST_F(StartDialog, ReturnMovesOnAndStartsNothing) {
    Open();
    Click("chk_password");
    EXPECT_EQ(dialog->focusWidget(), Field("str_password"));
    Field("str_password")->setText("x");
    Return(Field("str_password"));
    EXPECT_EQ(dialog->focusWidget(), Field("str_password2"));
    Field("str_password2")->setText("x");
    Return(Field("str_password2"));
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_TRUE(target.heard.empty());
    EXPECT_TRUE(Errors().isEmpty());
    Return(Field("str_title"));
    EXPECT_EQ(target.heard.size(), 1u) << "elsewhere it is the confirm button";
}

TEST_F(StartDialog, SaysWhatThePasswordMeans) {
    Open();
    EXPECT_EQ(Find<QLabel>("str_hint")->text(), "");
    Click("chk_password");
    const QString none = Find<QLabel>("str_hint")->text();
    EXPECT_TRUE(none.contains("not be protected"));
    Field("str_password")->setText("x");
    EXPECT_NE(Find<QLabel>("str_hint")->text(), none);
    dialog->MakeTitleEditable(false);
    EXPECT_FALSE(dialog->IsTitleEditable());
    EXPECT_FALSE(Field("str_title")->isEnabled());
}

}  // namespace
