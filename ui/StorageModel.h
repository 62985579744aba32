// The storage pane's rows for Qt's tree view: one model over the pane's own row tree.
#pragma once

#include <QAbstractItemModel>

#include "ui/STORAGELIST.h"

// Rows change one at a time, each with the signal Qt wants (insert, move, change, remove),
// so the view keeps its selection and expanded rows across them.
class StorageModel : public QAbstractItemModel {
    Q_OBJECT

public:
    using QAbstractItemModel::QAbstractItemModel;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;

    STORAGEITEM *item(const QModelIndex &index) const;
    QModelIndex indexOf(long long number) const;
    const STORAGELIST &list() const { return fList; }

    // Brings the row of a node in line with the storage tree: added, moved, changed or gone.
    void sync(long long number);
    void unreadSet(long long number, unsigned long unread);

private:
    STORAGELIST fList;

    QModelIndex _indexOf(const STORAGEITEM *item) const;
};
