// KTKeptPane: the size of one pane of a splitter of two, which the user may change and finds again
// the next time. Owned by the splitter. Main thread.
#pragma once

#include <QObject>
#include <functional>

class QSplitter;

class KTKeptPane : public QObject {
    Q_OBJECT
public:
    // `size`: of the pane when it is first shown, pixels along the splitter; 0 or less, or no
    // number: as the splitter has it. `keep` is told each size that the user chooses.
    KTKeptPane(QSplitter* splitter, int pane, float size, std::function<void(float)> keep);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void Apply();

    QSplitter* fSplitter;
    const int fPane;
    const float fSize;
    const std::function<void(float)> fKeep;
};
