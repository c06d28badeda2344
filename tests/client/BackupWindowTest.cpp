#include "client/mainwindow/BackupWindow.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDesktopServices>
#include <QDropEvent>
#include <QImage>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QUrl>
#include <fstream>

#include "client/app/About.h"
#include "client/app/Languages.h"
#include "client/mainwindow/KTStartView.h"
#include "core/locale/KTLocale.h"
#include "tests/client/ClientTesting.h"

namespace {

using namespace client_testing;

enum { kOpen = true };

struct Desk {
    explicit Desk(bool open = false) {
        client::InstallBuiltInTexts();
        client::UseLanguage({}, "English");
        std::filesystem::create_directory(folder / "locale");
        std::filesystem::create_directory(folder / "Documentation");
        if (open) Open();
    }
    ~Desk() {
        window.reset();
        client::UseLanguage({}, "English");
        ForgetQuit();
    }
    void Open() {
        KTToolContext context;
        context.server = &server;
        context.preferences = &store;
        context.programFolder = context.userFolder = folder.Path();
        window = std::make_unique<BackupWindow>(context, BRect{50, 80, 600, 435});
        window->show();
        Settle();
    }
    QAction* Action(const char* name) const {
        return client_testing::Child<QAction>(window.get(), name);
    }
    void Do(const char* name) const {
        Action(name)->trigger();
        Settle();
    }
    template <class T = QWidget>
    T* Child(const char* name) const {
        return client_testing::Child<T>(window.get(), name);
    }
    QWidget* Shown() const { return Child<QStackedWidget>("workarea")->currentWidget(); }
    void AddLanguage(const char* file, const std::string& name, const char* id,
                     const std::vector<std::string>& texts) {
        BMessage language = Made({{"kt:app_id", id}, {"kt:language", name}});
        for (const std::string& text : texts)
            language.Add("kt:text", text);
        const Bytes bytes = language.Flatten();
        folder.Write(std::string("locale/") + file, std::string(bytes.begin(), bytes.end()));
    }

    TemporaryFolder folder;
    Preferences store{(folder / "Backup.prefs").c_str(), "KTBACKUP"};
    ScriptedServer server;
    ScriptedDialogs dialogs;
    std::unique_ptr<BackupWindow> window;
};

TEST(BackupWindow, AFirstStartShowsTheStartView) {
    Desk desk(kOpen);
    EXPECT_TRUE(qobject_cast<KTStartView*>(desk.Shown()));
    EXPECT_FALSE(desk.Child<QMenu>("mnu_jobsettings")->isEnabled());
    EXPECT_FALSE(desk.Child<QMenu>("mnu_selection")->isEnabled());
    EXPECT_TRUE(desk.Action("tbit")->isChecked());
    EXPECT_TRUE(desk.Action("paut")->isChecked()) << "the defaults of a missing file set it";
    EXPECT_FALSE(desk.Action("last")->isChecked());
    for (const QAction* action : desk.Child<QMenu>("mnu_tools")->actions())
        EXPECT_FALSE(action->isChecked());
    for (const char* code : {"lsel", "ssel", "sall", "sclr"})
        desk.Action(code);
}

TEST(BackupWindow, RestartsWithTheLastTool) {
    struct Case {
        bool set;
        int8_t last;
        const char* shown;
    };
    for (const Case& one :
         {Case{true, 5, "compare"}, Case{true, 1, "backup"}, Case{true, 6, "quickbackup"},
          Case{true, 0, "start"}, Case{false, 5, "start"}, Case{true, 7, ""}}) {
        Desk desk;
        desk.store.Set("lasttool", static_cast<int8_t>(one.set));
        desk.store.Set("lastview", one.last);
        desk.Open();
        EXPECT_EQ(desk.Shown()->objectName(), one.shown) << int{one.last};
    }
}

TEST(BackupWindow, SwitchesBetweenToolsAndKeepsTheirViews) {
    Desk desk;
    BMessage group = Made({{"kept", 3}});
    desk.store.Set("report", group);
    desk.Open();
    EXPECT_EQ(desk.window->View("report"), nullptr) << "made when first shown";
    desk.Do("rpvw");
    QWidget* reports = desk.Shown();
    EXPECT_EQ(reports, desk.window->View("report"));
    EXPECT_EQ(desk.store.GetInt8("lastview", 0), 4);
    EXPECT_TRUE(desk.Action("rpvw")->isChecked());
    desk.Do("jqvw");
    EXPECT_FALSE(reports->isVisible());
    EXPECT_EQ(desk.store.GetInt8("lastview", 0), 3);
    EXPECT_FALSE(desk.Action("rpvw")->isChecked());
    EXPECT_TRUE(desk.Action("jqvw")->isChecked());
    desk.Child<QToolButton>("btn_rpvw")->click();
    Settle();
    EXPECT_EQ(desk.Shown(), reports);
    BMessage settings;
    desk.window->View("report")->GetPref(&settings);
    EXPECT_EQ(settings.Get<int32_t>("kept", 0), 3) << "the group was handed to the view";
}

TEST(BackupWindow, TheToolBarFollowsItsMode) {
    Desk desk(kOpen);
    const struct {
        const char* code;
        int32_t stored;
        Qt::ToolButtonStyle style;
    } modes[] = {
        {"tbio", "tbio"_code, Qt::ToolButtonIconOnly},
        {"tbto", "tbto"_code, Qt::ToolButtonTextOnly},
        {"tbi2", "tbi2"_code, Qt::ToolButtonTextUnderIcon},
        {"tbit", "tbit"_code, Qt::ToolButtonTextBesideIcon},
    };
    for (const auto& mode : modes) {
        desk.Do(mode.code);
        EXPECT_TRUE(desk.Child("toolbar")->isVisible());
        EXPECT_EQ(desk.Child<QToolButton>("btn_bavw")->toolButtonStyle(), mode.style);
        EXPECT_EQ(desk.store.GetInt32("toolbar", 0), mode.stored);
        EXPECT_TRUE(desk.Action(mode.code)->isChecked());
    }
    const int top = desk.Child("workarea")->y();
    desk.Do("tbno");
    EXPECT_FALSE(desk.Child("toolbar")->isVisible());
    EXPECT_LT(desk.Child("workarea")->y(), top) << "the work area takes the space";
    EXPECT_EQ(desk.store.GetInt32("toolbar", 0), static_cast<int32_t>("tbno"_code));

    desk.Open();
    EXPECT_FALSE(desk.Child("toolbar")->isVisible()) << "remembered";
}

TEST(BackupWindow, ANarrowWindowHidesNoButton) {
    Desk desk(kOpen);
    for (const int width : {900, 551, 300}) {
        desk.window->resize(width, 400);
        Settle();
        const QRect room = desk.window->rect();
        for (const char* name :
             {"btn_qbvw", "btn_bavw", "btn_rsvw", "btn_cpvw", "btn_jqvw", "btn_rpvw", "btn_bsts"}) {
            const auto* button = desk.Child<QToolButton>(name);
            EXPECT_TRUE(button->isVisible());
            EXPECT_FALSE(button->accessibleName().isEmpty());
            const QRect place(button->mapTo(desk.window.get(), QPoint()), button->size());
            EXPECT_TRUE(room.contains(place)) << name << " at " << width;
            EXPECT_LE(place.bottom(),
                      desk.Child("workarea")->mapTo(desk.window.get(), QPoint()).y());
        }
    }
}

TEST(BackupWindow, LanguagesAreSortedAndASecondOneOfANameIsToldApart) {
    Desk desk;
    desk.AddLanguage("a", "Svenska", "velmora backup locale", {});
    desk.AddLanguage("b", "Deutsch", "velmora backup locale", {});
    desk.AddLanguage("c", "Deutsch", "somebody else's", {});
    desk.AddLanguage("d", "esperanto", "velmora backup locale", {});
    desk.Open();
    QStringList names;
    for (const QAction* action : desk.Child<QMenu>("mnu_language")->actions())
        names << action->text();
    EXPECT_EQ(names, QStringList({"Deutsch", "Deutsch(2)", "English", "Svenska", "esperanto"}));
    EXPECT_TRUE(desk.Action("lang_English")->isChecked());
    desk.Action("lang_Deutsch(2)");
}

TEST(BackupWindow, AChosenLanguageIsUsedFromNowOnAndSaid) {
    Desk desk;
    desk.AddLanguage("de", "Deutsch", "velmora backup locale", {"Gut"});
    desk.Open();
    desk.Do("lang_Deutsch");
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Locale: The selected language will be used correct if you restart the "
                    "application!"});
    EXPECT_EQ(desk.store.GetString("KT_LANGUAGE", ""), "Deutsch");
    EXPECT_STREQ(KTLocale::GetInstance()->Text(0), "Gut");
    EXPECT_STREQ(KTLocale::GetInstance()->Text(1), "Cancel") << "what it lacks is English";
    EXPECT_TRUE(desk.Action("lang_Deutsch")->isChecked());
    EXPECT_FALSE(desk.Action("lang_English")->isChecked());
    EXPECT_EQ(desk.Child<QMenu>("mnu_file")->title(), "File") << "what is on screen stays";
}

class GuideReader : public QObject {
    Q_OBJECT
public:
    GuideReader() { QDesktopServices::setUrlHandler("file", this, "Open"); }
    ~GuideReader() override { QDesktopServices::unsetUrlHandler("file"); }
    QStringList opened;
public slots:
    void Open(const QUrl& url) { opened << url.toLocalFile(); }
};

TEST(BackupWindow, HelpOpensTheGuideOfTheLanguage) {
    Desk desk;
    desk.AddLanguage("de", "Deutsch", "velmora backup locale", {});
    desk.AddLanguage("sv", "Svenska", "velmora backup locale", {});
    const QString english =
        QString::fromStdString(desk.folder / "Documentation/Backup-Guide-English.html");
    const QString german =
        QString::fromStdString(desk.folder / "Documentation/Backup-Guide-Deutsch.html");
    desk.Open();
    desk.Do("hlps");
    EXPECT_EQ(desk.dialogs.Told(),
              Texts{"Backup: Can't load help file '" + english.toStdString() + "'!"});

    for (const QString& path : {english, german})
        std::ofstream(path.toStdString()) << "<html>";
    GuideReader reader;
    desk.Do("hlps");
    desk.Do("lang_Svenska");
    desk.Do("hlps");
    desk.Do("lang_Deutsch");
    desk.Do("hlps");
    EXPECT_EQ(reader.opened, QStringList({english, english, german}));
}

TEST(BackupWindow, TheAboutBoxNamesProductAndVersion) {
    Desk desk(kOpen);
    desk.Do("_ABR");
    const Texts told = desk.dialogs.Told();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_TRUE(told[0].starts_with("About...: VELMORA BACKUP 1.02 RELEASE\n\n")) << told[0];
}

TEST(BackupWindow, SwitchesAreKeptAndMarked) {
    Desk desk(kOpen);
    desk.Do("last");
    EXPECT_EQ(desk.store.GetInt8("lasttool", 0), 1);
    EXPECT_TRUE(desk.Action("last")->isChecked());
    desk.Do("last");
    EXPECT_EQ(desk.store.GetInt8("lasttool", 1), 0);
    EXPECT_FALSE(desk.Action("last")->isChecked());
    desk.Do("paut");
    EXPECT_EQ(desk.store.GetInt8("KT_AUTOPREFS", 1), 0);
    EXPECT_FALSE(desk.Action("paut")->isChecked());
}

QWidget* StatusWindow() {
    for (QWidget* top : QApplication::topLevelWidgets())
        if (top->objectName() == "win_status") return top;
    ADD_FAILURE() << "no status window";
    return nullptr;
}

// A group of the settings, as it is in their file.
BMessage Saved(const Desk& desk, const char* group) {
    const Preferences saved((desk.folder / "Backup.prefs").c_str(), "KTBACKUP");
    return saved.GetMessageData(group);
}

TEST(BackupWindow, AJobStartShowsTheStatusWindowIfTheUserWantsIt) {
    for (const int32_t wanted : {0, 1}) {
        Desk desk;
        desk.store.Set("status", Made({{"autoopen", wanted}}));
        desk.Open();
        EXPECT_FALSE(StatusWindow()->isVisible());
        const BMessage start = Made("KTJS"_code, {{"job_id", 7}, {"job_type", 1}});
        BMessage accepted;
        bool answered = false;
        BMessenger(desk.window.get()).Ask(start, [&](BSendResult, BMessage answer) {
            accepted = std::move(answer);
            answered = true;
        });
        ASSERT_TRUE(WaitFor([&] { return answered; }));
        EXPECT_EQ(accepted.what, "KTAB"_code) << "a panel takes the job, seen or not";
        EXPECT_EQ(accepted.Get<int32_t>("job_id", 0), 7);
        EXPECT_EQ(StatusWindow()->isVisible(), wanted == 1);
        desk.Do("bsts");
        EXPECT_TRUE(StatusWindow()->isVisible());
        desk.Do("_QRQ");
        EXPECT_FALSE(StatusWindow()->isVisible());
    }
}

TEST(BackupWindow, QuittingKeepsThePlaceOfTheStatusWindowBesideTheMainOne) {
    Desk desk(kOpen);
    desk.Do("bsts");
    StatusWindow()->move(desk.window->pos() + QPoint(15, 25));
    desk.Do("_QRQ");
    const BRect place = Saved(desk, "status").Get("statuswinpos", BRect());
    EXPECT_EQ(place.left, 15);
    EXPECT_EQ(place.top, 25);

    Desk unseen(kOpen);
    unseen.Do("_QRQ");
    EXPECT_TRUE(Saved(unseen, "status").Find<BRect>("statuswinpos"))
        << "always, also when it was never shown";
}

// What a tool has changed since, and what of it is in the file after the end.
BMessage SavedReportGroup(bool autoprefs, const char* end) {
    Desk desk;
    desk.store.Set("KT_AUTOPREFS", static_cast<int8_t>(autoprefs));
    desk.Open();
    desk.Do("rpvw");
    BMessage changed;
    changed.Add("changed", int32_t{1});
    desk.window->View("report")->SetPref(changed);
    desk.window->setGeometry(11, 22, 700, 500);
    desk.Do(end);
    const Preferences saved((desk.folder / "Backup.prefs").c_str(), "KTBACKUP");
    if (std::string_view(end) == "_QRQ") {
        EXPECT_FALSE(desk.window->isVisible());
        EXPECT_EQ(saved.GetRect("KT_MAINWINPOS"), (BRect{11, 22, 710, 521}));
    }
    EXPECT_EQ(saved.GetInt8("lastview", 0), 4);
    return saved.GetMessageData("report");
}

TEST(BackupWindow, QuittingSavesWhatTheUserWantsSaved) {
    EXPECT_EQ(SavedReportGroup(true, "_QRQ").Get<int32_t>("changed", 0), 1);
    EXPECT_EQ(SavedReportGroup(false, "_QRQ").Get<int32_t>("changed", 0), 0);
    EXPECT_EQ(SavedReportGroup(false, "psav").Get<int32_t>("changed", 0), 1)
        << "saving by hand saves the tools whatever the switch says";
}

TEST(BackupWindow, ClosingItByTheStartViewsButtonEndsTheProgram) {
    Desk desk(kOpen);
    QTimer::singleShot(0, desk.Child<QPushButton>("btn_quit"), &QPushButton::click);
    EXPECT_EQ(QCoreApplication::exec(), 0);
    EXPECT_FALSE(desk.window->isVisible());
}

TEST(BackupWindow, DroppedFilesAreHandedToTheApplication) {
    Desk desk(kOpen);
    QMimeData data;
    data.setUrls({QUrl("https://example.org/x"), QUrl::fromLocalFile("/tmp/job")});
    const auto deliver = [&](QEvent&& event) {
        QCoreApplication::sendEvent(desk.window.get(), &event);
    };
    deliver(QDragEnterEvent(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier));
    deliver(QDropEvent(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier));
    ASSERT_EQ(desk.server.application.size(), 1u);
    EXPECT_EQ(desk.server.application[0].what, "REFS"_code);
    EXPECT_EQ(desk.server.application[0].Count("refs"), 1);
    EXPECT_EQ(desk.server.application[0].Get("refs", entry_ref()).path, "/tmp/job");
}

// --- start view ---------------------------------------------------------------------------------

class PaintCounter : public QObject {
public:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint)
            painted += static_cast<QPaintEvent*>(event)->region().boundingRect();
        return false;
    }
    QRegion painted;
};

TEST(KTStartView, ANewHeightAloneDoesNotRedrawIt) {
    Listener window;
    QWidget page;
    page.resize(600, 400);
    KTStartView view(&window, &page);
    view.resize(500, 300);
    page.show();
    Settle();
    PaintCounter counter;
    view.installEventFilter(&counter);
    const QPoint logo(250, 100);
    view.resize(500, 340);
    Settle();
    EXPECT_FALSE(counter.painted.contains(logo));
    view.resize(520, 340);
    Settle();
    EXPECT_TRUE(counter.painted.contains(logo));
    const auto* quit = view.findChild<QPushButton*>("btn_quit");
    EXPECT_EQ(quit->geometry().bottom() + 1, 340 - 15);
    EXPECT_NEAR(quit->geometry().center().x(), 260, 1);
}

TEST(KTView, AWideTextBeginsLeftOfTheView) {
    QImage image(100, 40, QImage::Format_RGB32);
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        QFont font("DejaVu Sans");
        font.setPixelSize(12);
        painter.setFont(font);
        KTView::CenterString(painter, QRectF(0, 0, 100, 40), 20, QString(80, 'W'));
        KTView::CenterString(painter, QRectF(0, 0, 100, 40), 38, "WxxxxxxxxxxxxxxxxxxxxxxxW", 1);
    }
    const auto inked = [&](QRect part) {
        for (int y = part.top(); y <= part.bottom(); ++y)
            for (int x = part.left(); x <= part.right(); ++x)
                if (image.pixelColor(x, y) != Qt::white) return true;
        return false;
    };
    EXPECT_TRUE(inked({0, 8, 5, 12}) && inked({94, 8, 5, 12})) << "cut on both sides";
    EXPECT_TRUE(inked({40, 26, 20, 12})) << "the one letter stands in the middle";
    EXPECT_FALSE(inked({0, 26, 30, 12}) || inked({70, 26, 30, 12}));
}

}  // namespace

#include "BackupWindowTest.moc"
