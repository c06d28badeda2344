// KTColumnListDelegate: draws the cells of a KTColumnListView (the box of its mark before a row's
// name) and makes the editors.
#pragma once

#include <QStyledItemDelegate>

class KTColumnListView;

class KTColumnListDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit KTColumnListDelegate(KTColumnListView* view);

    void SetHeight(int height) { fHeight = height; }
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model,
                      const QModelIndex& index) const override;
    // Marks are toggled by the view, which knows about ranges.
    bool editorEvent(QEvent*, QAbstractItemModel*, const QStyleOptionViewItem&,
                     const QModelIndex&) override {
        return false;
    }

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;

private:
    KTColumnListView* fView;
    int fHeight = 16;
};
