// KTAddOnRow: one row of controls in which an add-on is chosen: label, menu of add-ons, settings
// button, words that describe what is chosen. Its widgets belong to the window of the grid. Main
// thread.
#pragma once

#include <QString>
#include <string>
#include <vector>

class BHandler;
class KTElidedLabel;
class QComboBox;
class QGridLayout;
class QPushButton;
class QWidget;
struct AddOnName;

class KTAddOnRow {
public:
    enum Column { kLabel, kMenu, kButton, kWords };
    static constexpr char kNothing[] = "--";

    struct Names {
        const char *menu, *popUp, *button, *words;
        int32_t label;                      // a text's id
        uint32_t chosenCode, settingsCode;  // that the menu and the button send
        Qt::TextElideMode elide = Qt::ElideRight;
    };
    KTAddOnRow(const Names& names, const BHandler* target, QGridLayout* grid, int row);

    void Fill(const std::vector<AddOnName>& addOns, const std::string& currentName);
    std::string ChosenFile() const;  // "" when nothing is chosen
    void SetChosen(const std::string& fileName);
    void SetWords(const char* words);  // bytes; null or "": "--"
    bool HasWords() const;
    void EnableSettings(bool enable);

    QWidget* Menu() const;
    QWidget* Button() const;

private:
    QComboBox* fMenu;
    QPushButton* fButton;
    KTElidedLabel* fWords;
};
