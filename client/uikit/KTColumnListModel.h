// KTColumnListModel: a KTRowStore as a Qt model. It holds nothing: an index carries the id of its
// row, texts come from the view when they are asked for.
#pragma once

#include <QAbstractItemModel>

#include "client/uikit/KTRowStore.h"

class KTColumnListView;

class KTColumnListModel : public QAbstractItemModel, public KTRowStore::Listener {
    Q_OBJECT
public:
    explicit KTColumnListModel(KTColumnListView* view);
    ~KTColumnListModel() override;

    QModelIndex IndexOf(KTRow row, int column) const;
    static KTRow RowOf(const QModelIndex& index) {
        return index.isValid() ? static_cast<KTRow>(index.internalId()) : kNoRow;
    }
    // Tells views and screen readers about one row.
    void TellRow(KTRow row);
    void TellEverything();

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

    void AboutToInsert(KTRow parent, int32_t first, int32_t count) override;
    void Inserted() override;
    void AboutToRemove(KTRow parent, int32_t first, int32_t count) override;
    void Removed() override;
    void AboutToMove(KTRow row, KTRow newParent) override;
    void Moved() override;
    void AboutToReset() override;
    void Reset() override;
    void Changed(KTRow row, bool subtree) override;

private:
    KTColumnListView* fView;
    KTRowStore& fRows;
};
