// KTFlowLayout: its items stand beside each other like words, in as many rows as the width demands,
// so that a narrow window hides none of them. One that is wider than a row gets the row's width.
#pragma once

#include <QLayout>
#include <memory>
#include <vector>

class KTFlowLayout : public QLayout {
    Q_OBJECT
public:
    // The gaps between items beside each other and between rows.
    KTFlowLayout(QWidget* parent, int beside, int below);
    ~KTFlowLayout() override;

    void addItem(QLayoutItem* item) override;
    int count() const override { return static_cast<int>(fItems.size()); }
    QLayoutItem* itemAt(int index) const override;
    QLayoutItem* takeAt(int index) override;
    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;     // all in one row
    QSize minimumSize() const override;  // the widest item
    void setGeometry(const QRect& rect) override;

private:
    // Places the items (`move`) or only measures; the height used.
    int Arrange(const QRect& rect, bool move) const;
    const int fBelow;
    std::vector<std::unique_ptr<QLayoutItem>> fItems;
};
