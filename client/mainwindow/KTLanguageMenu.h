// KTLanguageMenu: the languages there are files for, as a radio menu. Its items post 'lang' with
// "language".
#pragma once

#include <QMenu>
#include <string>
#include <vector>

#include "kit/app/BHandler.h"

class QActionGroup;

class KTLanguageMenu : public QMenu {
    Q_OBJECT
public:
    KTLanguageMenu(const QString& title, const BHandler* target, QWidget* parent = nullptr);

    // "English" and the languages of the folders' files, the item of `current` marked.
    void BuildLanguageMenu(const std::vector<std::string>& folders, const std::string& current);
    void UpdateLocaleMenu(const std::string& current);  // only the marks

private:
    QAction* CreateLanguageItem(const std::string& language);
    // Sorted by the bytes of the labels. A second one of a label gets "(2)" and comes right after
    // it.
    void InsertLanguageItem(QAction* item);

    const BHandler* fTarget;
    QActionGroup* fGroup;
};
