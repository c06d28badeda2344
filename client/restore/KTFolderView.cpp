#include "client/restore/KTFolderView.h"

#include <QDir>
#include <QFile>
#include <QFileSystemModel>
#include <QHeaderView>

#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"

KTFolderView::KTFolderView(BMessenger target, QWidget* parent)
    : QTreeView(parent), fModel(new QFileSystemModel(this)), fTarget(std::move(target)) {
    KTControl::Name(this, "RestoreFolderView", KTControl::Text(core::kMoreFolders));
    fModel->setFilter(QDir::AllDirs | QDir::NoDotAndDotDot);
    fModel->setOption(QFileSystemModel::DontUseCustomDirectoryIcons);
    fModel->setReadOnly(true);
    // All of it hangs below one row for "/".
    fModel->setRootPath("/");
    setModel(fModel);
    setHeaderHidden(true);
    for (int column = 1; column < fModel->columnCount(); ++column)
        hideColumn(column);
    setUniformRowHeights(true);
    setDragEnabled(true);
    setDragDropMode(DragOnly);
    setSelectionMode(SingleSelection);
    setFrameShape(NoFrame);
    ShowHome();
    // Rows above it come as they are read; then the user is left alone.
    connect(fModel, &QFileSystemModel::directoryLoaded, this, [this](const QString& path) {
        if (!std::exchange(fHomeShown, fHomeShown || path == QDir::homePath())) ShowHome();
    });
    connect(this, &QTreeView::pressed, this, [this] { fHomeShown = true; });
    connect(this, &QTreeView::activated, this, &KTFolderView::Choose);
}

void KTFolderView::ShowHome() {
    const QModelIndex home = fModel->index(QDir::homePath());
    expand(fModel->index("/"));
    expand(home);
    setCurrentIndex(home);
    scrollTo(home, PositionAtTop);
}

void KTFolderView::keyPressEvent(QKeyEvent* event) {
    fHomeShown = true;
    QTreeView::keyPressEvent(event);
}

void KTFolderView::Choose(const QModelIndex& index) const {
    const QString path = fModel->filePath(index);
    if (path.isEmpty()) return;
    BMessage message("RSRD"_code);
    message.Add("RESREDIRECTPATH", QFile::encodeName(path).toStdString());
    fTarget.SendMessage(std::move(message));
}
