#include "client/uikit/KTToolView.h"

#include "client/uikit/KTWindowLooper.h"

KTToolView::KTToolView(const char* name, KTToolContext context, QWidget* parent)
    : QWidget(parent), fContext(std::move(context)) {
    setObjectName(QString::fromLatin1(name));
    WindowLooper()->AddHandler(this);
}

KTToolView::~KTToolView() {
    // Deleted, not closed: a window that closes reports to its tool, whose class is gone by now.
    auto windows = std::exchange(fWindows, {});
    for (auto& [key, window] : windows)
        delete window.data();
}

QWidget* KTToolView::OpenWindow(const std::string& key) const {
    const auto found = fWindows.find(key);
    if (found == fWindows.end() || !found->second) return nullptr;
    QWidget* window = found->second;
    // Closed, but Qt has not come to deleting it yet.
    if (window->isHidden() && window->testAttribute(Qt::WA_WState_ExplicitShowHide)) return nullptr;
    return window;
}

void KTToolView::Remember(const std::string& key, QWidget* window) {
    fWindows[key] = window;
}

void KTToolView::Forget(const std::string& key) {
    fWindows.erase(key);
}

bool KTToolView::RaiseIfOpen(const std::string& key) {
    QWidget* window = OpenWindow(key);
    if (!window) return false;
    window->show();
    window->raise();
    window->activateWindow();
    return true;
}
