// KTSpecialListView: a scrolling list whose items are whole views, stacked one under another. Main
// thread.
#pragma once

#include <QScrollArea>

class QVBoxLayout;

class KTSpecialListView : public QScrollArea {
    Q_OBJECT
public:
    explicit KTSpecialListView(const char* name, QWidget* parent = nullptr);

    void AddView(QWidget* view);  // at the end; the list owns it
    // Takes it out without deleting it: the caller's from then on. False when it is not in the
    // list.
    bool RemoveView(QWidget* view);
    void RemoveViews(int index, int count);  // deletes them
    int CountViews() const;
    int IndexOfView(const QWidget* view) const;  // -1 when it is not in the list
    QWidget* ViewAt(int index) const;            // null past the end

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void UpdateVScrollBar();
    QWidget* fContent;
    QVBoxLayout* fLayout;
};
