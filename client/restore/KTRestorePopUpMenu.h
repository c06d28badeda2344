// KTRestorePopUpMenu: a menu that stands for a directory, with a menu of the same kind for each
// directory in it: to choose one as a target. It is filled when it is first shown, by a thread of
// its own, and stays so. Choosing posts 'RSRD' with "RESREDIRECTPATH". Main thread.
#pragma once

#include <QMenu>
#include <string>

#include "kit/message/BMessenger.h"

class KTRestorePopUpMenu : public QMenu {
    Q_OBJECT
public:
    // `path`: absolute, bytes.
    KTRestorePopUpMenu(const QString& title, std::string path, BMessenger target, QWidget* parent);

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void Fill();
    void Filled(const std::vector<std::string>& names);
    void Choose(const std::string& path) const;

    const std::string fPath;
    const BMessenger fTarget;
    bool fFilled = false;
};
