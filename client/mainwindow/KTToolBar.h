// KTToolBar: a button for every tool and one for the window of running jobs. The buttons share the
// actions of the menus, so they post the same codes and carry the same marks. In a narrow window it
// takes more rows rather than hiding buttons.
#pragma once

#include <QWidget>
#include <cstdint>

class QAction;

class KTToolBar : public QWidget {
    Q_OBJECT
public:
    explicit KTToolBar(QWidget* parent);

    void AddButton(QAction* action);  // named "btn_" and the action's name
    void BeginGroup();                // of buttons that stay together as long as the width allows
    // One of the five tool-bar codes; any other shows it as 'tbit' does.
    void SetMode(uint32_t mode);
    static bool IsMode(uint32_t code);

private:
    QWidget* fGroup = nullptr;
};
