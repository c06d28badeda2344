#include "client/restore/KTRestorePopUpMenu.h"

#include <QMouseEvent>
#include <QPointer>
#include <QThreadPool>
#include <algorithm>
#include <filesystem>

#include "client/selection/SourceIcons.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"

namespace {

constexpr size_t kMost = 1000;  // no menu is longer

// Without those that are links; hidden ones last.
std::vector<std::string> DirectoriesIn(const std::string& path) {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code unknown;
        if (entry->is_directory(unknown) && !entry->is_symlink(unknown))
            names.push_back(entry->path().filename().string());
    }
    std::ranges::sort(
        names, {}, [](const std::string& name) { return std::pair(name.starts_with('.'), name); });
    if (names.size() > kMost) names.resize(kMost);
    return names;
}

}  // namespace

KTRestorePopUpMenu::KTRestorePopUpMenu(const QString& title, std::string path, BMessenger target,
                                       QWidget* parent)
    : QMenu(title, parent), fPath(std::move(path)), fTarget(std::move(target)) {
    setToolTipsVisible(true);
    setIcon(SourceIcons::For(SourceKind::Directory, {}));
    QAction* here =
        addAction(KTControl::Text(core::kMoreUseDirectory).replace("%s", KTControl::Shown(fPath)));
    here->setObjectName("here");
    connect(here, &QAction::triggered, this, [this] { Choose(fPath); });
    addSeparator();
    connect(this, &QMenu::aboutToShow, this, &KTRestorePopUpMenu::Fill);
}

void KTRestorePopUpMenu::Fill() {
    if (std::exchange(fFilled, true)) return;
    addAction(KTControl::Text(core::kMoreReadingDirectory))->setEnabled(false);
    QThreadPool::globalInstance()->start([path = fPath, menu = QPointer(this)] {
        auto names = DirectoriesIn(path);
        QMetaObject::invokeMethod(qApp, [menu, names = std::move(names)] {
            if (menu) menu->Filled(names);
        });
    });
}

void KTRestorePopUpMenu::Filled(const std::vector<std::string>& names) {
    delete actions().constLast();
    for (const std::string& name : names) {
        const QString title = KTControl::Shown(name).replace("&", "&&");
        addMenu(new KTRestorePopUpMenu(title, fPath == "/" ? "/" + name : fPath + "/" + name,
                                       fTarget, this));
    }
    if (names.empty()) addAction(KTControl::Text(core::kMoreNoDirectories))->setEnabled(false);
    if (isVisible()) popup(pos());  // at its new size
}

void KTRestorePopUpMenu::Choose(const std::string& path) const {
    BMessage message("RSRD"_code);
    message.Add("RESREDIRECTPATH", path);
    fTarget.SendMessage(std::move(message));
}

// A click on an item that leads to a further menu chooses its directory, too.
void KTRestorePopUpMenu::mouseReleaseEvent(QMouseEvent* event) {
    QAction* action = actionAt(event->pos());
    const auto* below = action ? qobject_cast<KTRestorePopUpMenu*>(action->menu()) : nullptr;
    if (!below || event->button() != Qt::LeftButton) return QMenu::mouseReleaseEvent(event);
    Choose(below->fPath);
    for (QWidget* menu = this; menu; menu = qobject_cast<QMenu*>(menu->parentWidget()))
        menu->close();
}
