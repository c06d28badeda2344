// KTFolderView: the directories of this machine as a tree, beside the catalogue. One is dragged
// onto what is to be restored into it, or sent there with Return or a double click, which posts
// 'RSRD' with "RESREDIRECTPATH". Main thread; the model reads and watches on a thread of its own.
#pragma once

#include <QTreeView>

#include "kit/message/BMessenger.h"

class QFileSystemModel;

class KTFolderView : public QTreeView {
    Q_OBJECT
public:
    KTFolderView(BMessenger target, QWidget* parent);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void ShowHome();
    void Choose(const QModelIndex& index) const;

    QFileSystemModel* fModel;
    bool fHomeShown = false;  // or the user has been here before
    const BMessenger fTarget;
};
